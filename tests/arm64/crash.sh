# In a phone of the emulated guest, and only there: lets the daemon's sleep watchdog come to the verdict that
# the phone must be crashed. Hours pass by the clock file. That this comes back is the failure.
readonly clock=/data/local/tmp/clock

die() {
  echo "crash: FAILED: $*"
  logcat -d | tail -n 30
  exit 1
}
await() {
  typeset what=$1 end=$((SECONDS + 120))
  shift
  until "$@"; do
    [ $SECONDS -lt $end ] || die "no $what within two minutes"
    sleep 0.1
  done
}
log_has() { logcat -d | grep -q -e "$1"; }
# In one step: a reader that saw an empty file would be thrown back by hours.
move_clock() {
  echo "+$1" > $clock.new
  mv $clock.new $clock
}
uncovered() { [ "$(stat -c %d /proc/sysrq-trigger)" = "$(stat -c %d /proc/version)" ]; }

await "kernel trigger" uncovered
echo "crash: /proc/sysrq-trigger is the kernel's own"
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
await "verdict" log_has 'if echo c > /proc/sysrq-trigger!!!!'
logcat -d | grep -e handle_mpss_stats | tail -n 3
echo "crash: the verdict is a crash dump, after 15 s of grace"
sleep 40
die "the guest is still there"
