# The demonstration of `./dev demo`, in a bench phone: logs a run, evicts old runs, collects a feedback bundle and shows
# the results. Exits with 0 only if everything was found.
say() { printf '\n\033[1m== %s\033[0m\n' "$*"; }
die() {
  printf 'demo: FAILED: %s\n' "$*" >&2
  exit 1
}
# show COMMAND...: prints and runs a command.
show() {
  printf '$ %s\n' "$*"
  "$@" || die "$1 ended with $?"
}
# sample WHAT PATTERN FILE...: prints the first line that matches.
sample() {
  typeset what=$1 pattern=$2 line
  shift 2
  line=$(cat "$@" 2>/dev/null | grep -m 1 -e "$pattern" | cut -c 1-110)
  [ -n "$line" ] || die "no $what in $*"
  printf '%-22s %s\n' "$what" "$line"
}

say "The phone is booted, the daemon listens"
show getprop init.svc.harrowmossd
show harrowmossctl version

say "Three old runs of 600 MiB each (sparse) under a quota of 1 GiB"
for old in '1#01-01_08-00-00' '2#01-02_08-00-00' '3#01-03_08-00-00'; do
  mkdir -p "/sdcard/zelkalog/$old"
  truncate -s 600M "/sdcard/zelkalog/$old/old.bin"
done
setprop persist.sys.zklog.dir_sequence 3
echo "the size monitor will evict the oldest first, one every 5 s"

say "Start logging: log buffers, modem, touch screen"
show harrowmossctl start mobile,modem,touch
run=$(getprop sys.harrowmossd.log_store_path)
[ -n "$run" ] || die "sys.harrowmossd.log_store_path is not set"

say "Create something to log"
# The kernel log is the host's: the mark distinguishes this line from those of earlier demonstrations.
mark=demo-$(date +%s)
line="a line in the kernel log"
if ! { : < /dev/kmsg && echo "<4>$mark: $line" > /dev/kmsg; } 2> /dev/null; then
  log -b kernel -t "$mark" "$line"  # in a user namespace init may not read the kernel's log
fi
log -t DemoApp -p w "a warning of an app"
log -t RILJ -b radio "> SIGNAL_STRENGTH"
log -t AndroidRuntime -p e -b crash "FATAL EXCEPTION: main"
echo "*** *** signal 11 (SIGSEGV), code 1, in demo.app" > /data/tombstones/tombstone_00
(umask 077; echo "Subject: Input dispatching timed out" > /data/anr/anr_2023-01-05)  # as system_server does
chown system:system /data/anr/anr_2023-01-05
echo "one line each in the kernel, main, radio and crash buffers, a tombstone, an ANR trace; and 80,000"
echo "lines with the tag Harrowmoss, so that the self log exceeds 10 MiB and is rotated"
log -t Harrowmoss -n 80000 "burst $(printf '%0100d' 0)"

finger plug event2 zelka_goodix_ts
sleep 0.5  # the recorder finds the new device
finger swipe event2 540 1800 540 600 3 > /dev/null
echo "and a swipe on the touch screen"

say "Status"
show harrowmossctl status
waited=0
until [ -f /data/misc/zelkalog/.logger/harrowmoss.txt.1 ] &&
    grep -q '0 799[0-9]*$' /data/misc/zelkalog/.logger/harrowmoss.txt; do  # the rest is buffered
  waited=$((waited + 1))
  [ $waited -lt 100 ] || die "the 80,000 lines were not in the self log within 10 s"
  sleep 0.1
done

say "Eviction: with the modem log the limit is three quarters of the quota, so the two oldest runs must go"
waited=0
while [ -d '/sdcard/zelkalog/2#01-02_08-00-00' ]; do
  waited=$((waited + 1))
  [ $waited -lt 300 ] || die "the two oldest runs were not deleted within 30 s"
  sleep 0.1
done
grep -h "now delete oldest dir" /data/misc/zelkalog/.logger/harrowmossd.txt ||
  die "no log line about an eviction"
[ "$(grep -c 'now delete oldest dir' /data/misc/zelkalog/.logger/harrowmossd.txt)" = 2 ] &&
  [ -d '/sdcard/zelkalog/3#01-03_08-00-00' ] || die "more than the two oldest runs were deleted"
[ -d "/data/misc/zelkalog/${run##*/}" ] || die "the current run was deleted"
show harrowmossctl status | head -n 6

say "Stop: collect crash artefacts, end the workers, move the run to shared storage"
show harrowmossctl stop
[ -d "$run" ] || die "the run is not at $run"
[ ! -d "/data/misc/zelkalog/${run##*/}" ] || die "the run is still in the working area"
show harrowmossctl runs

say "A feedback bundle"
show harrowmossctl feedback --select general,tombstone /sdcard/report

show harrowmossctl feedback --estimate --select general,tombstone /sdcard/report
show harrowmossctl pack /sdcard/report
show sha256sum /sdcard/report.tar.gz
show tar -x -O -z -f /sdcard/report.tar.gz report.manifest.txt | head -n 8
show head -n 6 /sdcard/report/others.prop

say "doctor: why is there no log? (logging is off)"
harrowmossctl doctor | head -n 4
show harrowmossctl du

say "Collected files"
cd /sdcard/zelkalog || die "no /sdcard/zelkalog"
find /sdcard/zelkalog /sdcard/report -type f | sort | while read -r file; do
  printf '%10d  %s\n' "$(stat -c %s "$file")" "$file"
done

say "One line of each kind"
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
sample "self log" "start_debug_log" .logger/harrowmossd.txt
sample "self log, collected" "harrowmossd: " .logger/harrowmoss.txt*
sample "bundle: main buffer" " burst " /sdcard/report/general/*-main.txt
sample "bundle: tombstone" "SIGSEGV" /sdcard/report/tombstones/*
size=$(stat -c %s .logger/harrowmoss.txt.1)
[ "$size" -ge 10485760 ] || die "harrowmoss.txt was rotated at $size bytes"
# Unique lines: the stop completes the file and repeats the line at the seam.
lines=$(cat .logger/harrowmoss.txt .logger/harrowmoss.txt.1 | grep ' burst ' | sed 's/.* //' | sort -u | wc -l)
[ "$lines" = 80000 ] || die "$lines of 80000 lines survived the rotation"
echo "rotation               at 10 MiB; all 80000 lines are in harrowmoss.txt and harrowmoss.txt.1"

say "The merged log around the crash"
name=${run##*/}
at=$(harrowmossctl log "$name" --grep "FATAL EXCEPTION" | grep -v '^---' | cut -c 1-21)
echo "$ harrowmossctl log '$name' --around '$at,1' | grep -v harrowmossd:"
harrowmossctl log "$name" --around "$at,1" | cut -c 1-110 > /data/local/tmp/around
for text in "FATAL EXCEPTION" "SIGNAL_STRENGTH" "DemoApp"; do
  grep -q "$text" /data/local/tmp/around || die "no $text around the crash"
done
grep -v -e ' burst ' -e 'harrowmossd:' /data/local/tmp/around | head -n 12
show harrowmossctl log "$name" --count

say "A page about the run, for a browser"
mkdir -p /data/local/taken
show harrowmossctl view "$name" -o /data/local/taken/run.html
for mark in crash anr tombstone evicted start stop; do
  grep -q "\"kind\":\"$mark\"" /data/local/taken/run.html || die "the page has no mark for $mark"
done
ls -l /data/local/taken/run.html

say "All fourteen logger types for a few seconds, and their files"
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
echo "switches set and reset (dump, coredump, systrace, MPSSDump, memory, sensor, anrDumpsys):"
grep -E 'ssr.restart_level|debug.trace|systrace.enable|start_ind|memory.debug|sensorlog_state|dumpsys.enable' \
  /dev/bench/properties.log | sed 's/^[0-9]* //' | while read -r one; do read -r two; read -r three; echo "  $one  $two  $three"; done

printf '\ndemo: passed. Next: ./dev phone; ./dev help lists all commands\n'
