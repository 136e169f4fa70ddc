#!/vendor/bin/sh
# harrowmoss_modem_logger.sh: stands for the vendor's modem logger. Writes into the directory that the
# daemon names until init stops it; the real one captures with the mask file of
# sys.harrowmossd.diag_mdlog_cfg and keeps persist.sys.harrowmossd.mdlog_counts files.
directory=$(getprop sys.harrowmossd.diag_mdlog_path)
[ -d "$directory" ] || exit 1
while :; do
  echo "$(date +%m-%d_%H:%M:%S) no modem logger on this product" >> "$directory/modem_log.txt"
  sleep 10
done
