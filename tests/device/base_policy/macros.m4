divert(-1)
define(`userdebug_or_eng', `ifelse(target_build_variant, `user', `', `$1')')
define(`full_treble_only', `$1')
define(`enforce_debugfs_restriction', `$1')

define(`r_file_perms', `{ getattr open read ioctl lock map watch watch_reads }')
define(`w_file_perms', `{ open append write lock map }')
define(`rw_file_perms', `{ getattr open read ioctl lock map watch watch_reads append write }')
define(`rx_file_perms', `{ getattr open read ioctl lock map watch watch_reads execute execute_no_trans }')
define(`create_file_perms',
  `{ create rename setattr unlink getattr open read ioctl lock map watch watch_reads append write }')
define(`r_dir_perms', `{ open getattr read search ioctl lock watch watch_reads }')
define(`rw_dir_perms',
  `{ open getattr read search ioctl lock watch watch_reads add_name remove_name write }')
define(`create_dir_perms',
  `{ create reparent rename rmdir setattr open getattr read search ioctl lock watch watch_reads add_name remove_name write }')
define(`no_rw_file_perms', `{ append create ioctl link lock open read rename setattr unlink write }')
define(`create_socket_perms_no_ioctl',
  `{ create read getattr write setattr lock append bind connect getopt setopt shutdown map }')
define(`create_stream_socket_perms',
  `{ create read getattr write setattr lock append bind connect getopt setopt shutdown map listen accept }')
define(`file_class_set', `{ file lnk_file sock_file fifo_file chr_file blk_file }')
define(`dir_file_class_set', `{ dir file lnk_file sock_file fifo_file chr_file blk_file }')
define(`global_capability_class_set', `capability')
define(`devfile_class_set', `{ chr_file blk_file }')

define(`r_dir_file', `
allow $1 $2:dir r_dir_perms;
allow $1 $2:{ file lnk_file } r_file_perms;
')
define(`domain_trans', `
allow $1 $2:file { getattr open read execute map };
allow $1 $3:process transition;
allow $3 $2:file { entrypoint open read execute getattr map };
allow $3 $1:process sigchld;
')
define(`init_daemon_domain', `
domain_trans(init, $1_exec, $1)
type_transition init $1_exec:process $1;
')
define(`unix_socket_connect', `
allow $1 $2_socket:sock_file write;
allow $1 $3:unix_stream_socket connectto;
')
define(`unix_socket_send', `
allow $1 $2_socket:sock_file write;
allow $1 $3:unix_dgram_socket sendto;
')
define(`get_prop', `allow $1 $2:file { getattr open read map };')
define(`set_prop', `
unix_socket_connect($1, property, init)
allow $1 $2:property_service set;
get_prop($1, $2)
')
define(`system_internal_prop', `
type $1, property_type, system_property_type, system_internal_property_type;')
define(`system_restricted_prop', `
type $1, property_type, system_property_type, system_restricted_property_type;')
define(`system_public_prop', `
type $1, property_type, system_property_type, system_public_property_type;')
define(`read_logd', `unix_socket_connect($1, logdr, logd)')
define(`control_logd', `unix_socket_connect($1, logd, logd)')
define(`binder_use', `
allow $1 servicemanager:binder { call transfer };
allow servicemanager $1:binder { call transfer };
allow servicemanager $1:dir search;
allow servicemanager $1:file { read open };
allow servicemanager $1:process getattr;
')
define(`binder_call', `
allow $1 $2:binder { call transfer };
allow $2 $1:binder transfer;
allow $1 $2:fd use;
')
define(`app_domain', `
typeattribute $1 appdomain;
allow $1 app_tmpfs:file { read write map getattr };
')
divert(0)dnl
