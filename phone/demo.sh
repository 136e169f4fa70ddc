# The demonstration that `./dev demo` runs in a bench phone: one run of debug logging and a feedback
# bundle, through the real control socket, with something to log; then a look at what was collected. Ends with 0 only when all
# that it shows is there.
say() { printf '\n\033[1m== %s\033[0m\n' "$*"; }
die() {
  printf 'demo: FAILED: %s\n' "$*" >&2
  exit 1
}
# show COMMAND...: what a person would type, and what comes of it.
show() {
  printf '$ %s\n' "$*"
  "$@" || die "$1 ended with $?"
}
# sample WHAT PATTERN FILE...: one captured line that matches.
sample() {
  typeset what=$1 pattern=$2 line
  shift 2
  line=$(cat "$@" 2>/dev/null | grep -m 1 -e "$pattern" | cut -c 1-110)
  [ -n "$line" ] || die "no $what in $*"
  printf '%-22s %s\n' "$what" "$line"
}

say "The phone is up, the daemon listens"
show getprop init.svc.harrowmossd
show harrowmossctl version

say "Three old runs of 600 MiB each (sparse) under a quota of 1 GiB"
for old in '1#01-01_08-00-00' '2#01-02_08-00-00' '3#01-03_08-00-00'; do
  mkdir -p "/sdcard/zelkalog/$old"
  truncate -s 600M "/sdcard/zelkalog/$old/old.bin"
done
setprop persist.sys.zklog.dir_sequence 3
echo "the size monitor will find them over quota and delete the oldest first, one in 5 s"

say "Debug logging, from the phone's side, from the modem's, and the touch screen"
show harrowmossctl start mobile,modem,touch
run=$(getprop sys.harrowmossd.log_store_path)
[ -n "$run" ] || die "the daemon does not say where the run goes"

say "Something to log"
# The kernel's log is the machine's: the mark tells this demonstration's line from an earlier one's.
mark=demo-$(date +%s)
line="a line in the kernel's own log"
if ! { : < /dev/kmsg && echo "<4>$mark: $line" > /dev/kmsg; } 2> /dev/null; then
  log -b kernel -t "$mark" "$line"  # in a user namespace init may not read the kernel's log
fi
log -t DemoApp -p w "an app has something to say"
log -t RILJ -b radio "> SIGNAL_STRENGTH"
log -t AndroidRuntime -p e -b crash "FATAL EXCEPTION: main"
echo "*** *** signal 11 (SIGSEGV), code 1, in demo.app" > /data/tombstones/tombstone_00
(umask 077; echo "Subject: Input dispatching timed out" > /data/anr/anr_2023-01-05)  # as system_server does
chown system:system /data/anr/anr_2023-01-05
echo "a kernel line, an app's, the radio's, a crash, a tombstone, an ANR trace; and 80,000 lines of"
echo "the daemon's own tag, so that its own log grows past 10 MiB and is rotated"
log -t Harrowmoss -n 80000 "burst $(printf '%0100d' 0)"

finger plug event2 zelka_goodix_ts
sleep 0.5  # the recorder finds the new device
finger swipe event2 540 1800 540 600 3 > /dev/null
echo "and a swipe over the touch screen"

say "What is going on"
show harrowmossctl status
waited=0
until [ -f /data/misc/zelkalog/.logger/harrowmoss.txt.1 ] &&
    grep -q '0 799[0-9]*$' /data/misc/zelkalog/.logger/harrowmoss.txt; do  # the rest is buffered
  waited=$((waited + 1))
  [ $waited -lt 100 ] || die "the burst did not come through the self log within 10 s"
  sleep 0.1
done

say "Eviction: with the modem three quarters of the quota count, so the two oldest runs must go"
waited=0
while [ -d '/sdcard/zelkalog/2#01-02_08-00-00' ]; do
  waited=$((waited + 1))
  [ $waited -lt 300 ] || die "the two oldest runs were not deleted within 30 s"
  sleep 0.1
done
grep -h "now delete oldest dir" /data/misc/zelkalog/.logger/harrowmossd.txt ||
  die "nothing says that a run was deleted"
[ "$(grep -c 'now delete oldest dir' /data/misc/zelkalog/.logger/harrowmossd.txt)" = 2 ] &&
  [ -d '/sdcard/zelkalog/3#01-03_08-00-00' ] || die "more than the two oldest runs were deleted"
[ -d "/data/misc/zelkalog/${run##*/}" ] || die "the run that is captured was deleted"
show harrowmossctl status | head -n 6

say "Stop: end every worker, collect, move the run to shared storage"
show harrowmossctl stop
[ -d "$run" ] || die "the run is not at $run"
[ ! -d "/data/misc/zelkalog/${run##*/}" ] || die "the run was not moved but copied"
show harrowmossctl runs

say "A feedback bundle: what a bug report needs of the phone's state"
show harrowmossctl feedback --select general,tombstone /sdcard/report

show harrowmossctl feedback --estimate --select general,tombstone /sdcard/report
show harrowmossctl pack /sdcard/report
show sha256sum /sdcard/report.tar.gz
show tar -x -O -z -f /sdcard/report.tar.gz report.manifest.txt | head -n 8
show head -n 6 /sdcard/report/others.prop

say "Why is there no log? (after the stop: because logging is off)"
harrowmossctl doctor | head -n 4
show harrowmossctl du

say "What was collected"
cd /sdcard/zelkalog || die "no /sdcard/zelkalog"
find /sdcard/zelkalog /sdcard/report -type f | sort | while read -r file; do
  printf '%10d  %s\n' "$(stat -c %s "$file")" "$file"
done

say "A line of each kind"
sample "kernel" "$mark" "$run"/mobile/*-kernel.txt
sample "main" "DemoApp" "$run"/mobile/*-main.txt
sample "radio" "SIGNAL_STRENGTH" "$run"/mobile/*-radio.txt
sample "crash" "FATAL EXCEPTION" "$run"/mobile/*-crash.txt
sample "tombstone" "SIGSEGV" "$run"/tombstones/*
sample "ANR trace" "dispatching" "$run"/anr/*
sample "modem logger" "qqqq" "$run"/modem/*.qmdl
sample "touch" "ABS_MT_POSITION_Y" "$run"/touch/event.txt
sample "log statistics" "ring buffer" "$run"/mobile/logcat_control_message-*
sample "device report" "Version Number" "$run"/others.prop
sample "the daemon's diary" "start_debug_log" .logger/harrowmossd.txt
sample "its lines in the log" "harrowmossd: " .logger/harrowmoss.txt*
sample "bundle: main buffer" " burst " /sdcard/report/general/*-main.txt
sample "bundle: tombstone" "SIGSEGV" /sdcard/report/tombstones/*
size=$(stat -c %s .logger/harrowmoss.txt.1)
[ "$size" -ge 10485760 ] || die "harrowmoss.txt was rotated at $size bytes"
# Each counts once: the stop completes the file and repeats the line at the seam.
lines=$(cat .logger/harrowmoss.txt .logger/harrowmoss.txt.1 | grep ' burst ' | sed 's/.* //' | sort -u | wc -l)
[ "$lines" = 80000 ] || die "$lines of 80000 lines came through the rotation"
echo "rotation               10 MiB reached, all 80000 lines are in harrowmoss.txt and harrowmoss.txt.1"

say "The run in one list: around the crash"
name=${run##*/}
at=$(harrowmossctl log "$name" --grep "FATAL EXCEPTION" | grep -v '^---' | cut -c 1-21)
echo "$ harrowmossctl log '$name' --around '$at,1' | grep -v harrowmossd:"
harrowmossctl log "$name" --around "$at,1" | cut -c 1-110 > /data/local/tmp/around
for piece in "FATAL EXCEPTION" "SIGNAL_STRENGTH" "DemoApp"; do
  grep -q "$piece" /data/local/tmp/around || die "no $piece around the crash"
done
grep -v -e ' burst ' -e 'harrowmossd:' /data/local/tmp/around | head -n 12
show harrowmossctl log "$name" --count

say "A page about it, for a browser"
mkdir -p /data/local/taken
show harrowmossctl view "$name" -o /data/local/taken/run.html
for mark in crash anr tombstone evicted start stop; do
  grep -q "\"kind\":\"$mark\"" /data/local/taken/run.html || die "the page has no mark for $mark"
done
ls -l /data/local/taken/run.html

say "All fourteen logger types for a few seconds, and what each left"
show harrowmossctl start all
sleep 2
finger swipe event2 540 1800 540 600 3 > /dev/null
sleep 1
show harrowmossctl stop
run=$(getprop sys.harrowmossd.log_store_path)
for left in mobile modem net power fg fingerprint touch wlan_logs anr system.prop system_stop.prop; do
  [ -e "$run/$left" ] || die "no $left in $run"
  if [ -d "$run/$left" ]; then
    printf '%-18s %s\n' "$left/" "$(ls "$run/$left" | tr '\n' ' ' | cut -c 1-90)"
  else
    printf '%-18s %s bytes\n' "$left" "$(stat -c %s "$run/$left")"
  fi
done
echo "switched on and off again (dump, coredump, systrace, MPSSDump, memory, sensor, anrDumpsys):"
grep -E 'ssr.restart_level|debug.trace|systrace.enable|start_ind|memory.debug|sensorlog_state|dumpsys.enable' \
  /dev/bench/properties.log | sed 's/^[0-9]* //' | while read -r one; do read -r two; read -r three; echo "  $one  $two  $three"; done

printf '\ndemo: everything is there. Next: ./dev phone, and ./dev for the rest\n'
