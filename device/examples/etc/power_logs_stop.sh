# power_logs_stop.sh STORE DIRECTORY: takes the last reading.
[ -d "$2" ] || exit 1
dumpsys batterystats --checkin > "$2/batterystats_stop.txt"
exit 0
