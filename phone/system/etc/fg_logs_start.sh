# fg_logs_start.sh DIRECTORY: logs the fuel gauge's readings every second until killed.
battery=/sys/class/power_supply/battery
while :; do
  echo "$(date +%m-%d_%H:%M:%S) $(cat $battery/capacity) $(cat $battery/voltage_now) $(cat $battery/current_now) $(cat $battery/temp)" >> "$1/fg_log.txt"
  sleep 1
done
