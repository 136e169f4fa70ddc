# Only for a phone of the emulated guest: makes the daemon's sleep watchdog decide to crash the phone. The clock file
# advances time by hours. Returning is the failure.
readonly clock=/data/local/tmp/clock

. /data/local/tmp/step.sh
# Atomic: a reader of an empty file would go back by hours.
move_clock() {
  echo "+$1" > $clock.new
  mv $clock.new $clock
}
# The watchdog's log goes to the console at once: the crash ends everything.
tell_decisions() {
  logcat | while read -r line; do
    case $line in *'will catch modem log'*|*'will trigger dump'*|*'> /proc/sysrq-trigger!!!!'*)
        echo "log: $line" ;;
    esac
  done
}
uncovered() { [ "$(stat -c %d /proc/sysrq-trigger)" = "$(stat -c %d /proc/version)" ]; }

await "kernel trigger" uncovered
echo "crash: /proc/sysrq-trigger is the kernel's own"
tell_decisions &
harrowmossctl start MPSSDump || die "no start"
await "baseline" log_has 'numshutdowns'
echo "crash: the watchdog has its baseline; the counters of /sys stand still"
move_clock 3700
await "capture" log_has 'before pause catch_modem_log_pid'
watchdog=$(grep -l MPSSDump /proc/[0-9]*/comm | cut -d / -f 3)
echo "crash: the watchdog is process $watchdog; the 20 minutes of its modem log are over"
kill -ALRM "$watchdog"
await "end of the capture" log_has 'after pause catch_modem_log_pid'
move_clock 4400
echo "crash: the next round is due; 15 s after its verdict the guest must be gone"
sleep 180
die "the guest is still there"
