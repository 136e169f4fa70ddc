# power_logs_start.sh STORE DIRECTORY: takes the first reading and returns; the daemon waits for it.
# power_logs_stop.sh must end anything that it leaves in the background.
[ -d "$2" ] || exit 1
dumpsys batterystats --checkin > "$2/batterystats_start.txt"
exit 0
