# power_logs_start.sh STORE DIRECTORY: takes the first reading and returns; the daemon waits for it. What
# shall go on in the background must be ended by power_logs_stop.sh.
[ -d "$2" ] || exit 1
dumpsys batterystats --checkin > "$2/batterystats_start.txt"
exit 0
