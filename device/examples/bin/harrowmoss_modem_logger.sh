#!/vendor/bin/sh
# harrowmoss_modem_logger.sh: example of a modem logger. Writes into the directory named by the daemon until
# init stops it; a real one captures with the mask file of
# sys.harrowmossd.diag_mdlog_cfg and keeps persist.sys.harrowmossd.mdlog_counts files.
directory=$(getprop sys.harrowmossd.diag_mdlog_path)
[ -d "$directory" ] || exit 1
while :; do
  echo "$(date +%m-%d_%H:%M:%S) no modem logger on this product" >> "$directory/modem_log.txt"
  sleep 10
done
