#!/system/bin/sh
# harrowmoss_vendor_logs.sh common|wifi|minidump: moves the vendor's logs into the store and sets the answer.
# Runs in the daemon's domain (by its label, file_contexts), because vendor domains cannot access shared
# storage. Does nothing when there are no vendor logs.
common=sys.zelka.harrowmossd.action.mv_vendor_common_logs.done
wifi=sys.zelka.harrowmossd.action.mv_vendor_wifi_logs.done
minidump=sys.zelka.harrowmossd.action.mv_minidump_logs_done

# Product specific.
wifi_logs=/data/vendor/wifi/wlan_logs
minidumps=/data/vendor/zelkalog/minidump

# move FROM TO: moves the content of a directory. cp and rm instead of mv: mv would delete files that did
# not fit.
move() {
  [ -d "$1" ] && [ -n "$2" ] && mkdir -p "$2" || return 0
  for entry in "$1"/*; do
    [ -e "$entry" ] || continue
    cp -a "$entry" "$2/" && rm -rf "$entry"
  done
  chmod -R 777 "$2"
}

case $1 in
  common) move "$(getprop sys.harrowmossd.vendor_log_root_path)" "$(getprop sys.harrowmossd.log_store_path)"; setprop $common 1 ;;
  wifi) move "$wifi_logs" "$(getprop sys.harrowmossd.log_store_path)"; setprop $wifi 1 ;;
  minidump) move "$minidumps" "$(getprop sys.harrowmossd.minidump.path)"; setprop $minidump 1 ;;
  *) exit 2 ;;
esac
