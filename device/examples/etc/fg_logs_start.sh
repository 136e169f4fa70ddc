# fg_logs_start.sh DIRECTORY: the fuel gauge's readings, a line every 10 seconds, until it is killed.
battery=/sys/class/power_supply/battery
reading() { cat "$battery/$1" 2> /dev/null || echo -; }
while :; do
  echo "$(date +%m-%d_%H:%M:%S) $(reading capacity) $(reading voltage_now) $(reading current_now) $(reading temp)" >> "$1/fg_log.txt"
  sleep 10
done
