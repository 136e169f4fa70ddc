# power_logs_stop.sh STORE DIRECTORY: ends the capture and takes a last reading.
if [ -f "$2/.capture_pid" ]; then
  kill "$(cat "$2/.capture_pid")" 2>/dev/null
  rm "$2/.capture_pid"
fi
dumpsys batterystats > "$2/batterystats.txt"
