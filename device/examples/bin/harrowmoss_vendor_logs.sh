#!/system/bin/sh
# harrowmoss_vendor_logs.sh common|wifi|minidump: brings what the vendor's side wrote into the store, and
# says so. Runs in the daemon's own domain (its label, file_contexts), because a vendor's domain reaches
# no shared storage. No-op where the vendor wrote nothing.
common=sys.zelka.harrowmossd.action.mv_vendor_common_logs.done
wifi=sys.zelka.harrowmossd.action.mv_vendor_wifi_logs.done
minidump=sys.zelka.harrowmossd.action.mv_minidump_logs_done

# The product's own places.
wifi_logs=/data/vendor/wifi/wlan_logs
minidumps=/data/vendor/zelkalog/minidump

# move FROM TO: the content of one directory into another. cp and rm, not mv: a move that does not fit
# would lose both.
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
