# power_logs_start.sh STORE DIRECTORY: starts the power capture in the background and returns.
[ -d "$2" ] || exit 1
{
  while :; do
    echo "$(date +%m-%d_%H:%M:%S) wakeups $(cat /proc/uptime)" >> "$2/power_log.txt"
    sleep 1
  done
} > /dev/null 2>&1 < /dev/null &
echo $! > "$2/.capture_pid"
exit 0
