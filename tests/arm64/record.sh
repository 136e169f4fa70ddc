# In a phone of the emulated guest: a debug-log run over a uinput touch screen, started, stopped and harvested. Exits
# with 0 only when everything is there.
readonly name=zelka_goodix_ts
readonly commands=/data/local/tmp/commands

. /data/local/tmp/step.sh

harrowmossctl start mobile,touch || die "no start"
working=/data/misc/zelkalog/$(basename "$(getprop sys.harrowmossd.log_store_path)")
await "recorder" log_has 'gettouchlog, nfds:'

# The screen is plugged in while the recorder runs; the nodes are created here, as by Android's ueventd.
mknod /dev/uinput c 10 223
mkfifo $commands
uinput_touch $name < $commands &
exec 9> $commands
handler() { sed -n "/Name=\"$name\"/,/^\$/s/.*Handlers=.*\\(event[0-9]*\\).*/\\1/p" /proc/bus/input/devices; }
has_handler() { [ -n "$(handler)" ]; }
await "kernel device" has_handler
node=/dev/input/$(handler)
mknod "$node" c 13 $((64 + ${node#/dev/input/event}))
opened() { ls -l /proc/[0-9]*/fd/ 2> /dev/null | grep -q -e "-> $node\$"; }
await "open $node" opened
grep -A 5 "Name=\"$name\"" /proc/bus/input/devices

log -t DemoApp "an app has something to say"
echo "*** *** signal 11 (SIGSEGV), code 1" > /data/tombstones/tombstone_00
echo "swipe 540 1800 600 620 4" >&9
packet_ends() { [ "$(grep -c SYN_REPORT "$working/touch/event.txt")" = 6 ]; }
await "whole swipe in the event file" packet_ends
# Unplugged: the kernel hangs up, and the node goes.
exec 9>&-
wait
rm "$node"
removed() { grep -q "remove device 1: $node" "$working/touch/event.txt"; }
await "removal in the event file" removed

harrowmossctl stop || die "no stop"
run=$(getprop sys.harrowmossd.log_store_path)
[ -d "$run" ] && [ ! -d "$working" ] || die "the run is not at $run"
cat "$run/touch/event.txt"
for text in 'ABS_MT_POSITION_X 540' 'ABS_MT_POSITION_X 600' 'ABS_MT_POSITION_Y 620' 'BTN_TOUCH DOWN' 'BTN_TOUCH UP'; do
  sed 's/  */ /g' "$run/touch/event.txt" | grep -q -e "$text" || die "no $text in $run/touch/event.txt"
done
grep -q "something to say" "$run"/mobile/*-main.txt || die "the app's line is not in $run"
grep -q SIGSEGV "$run"/tombstones/* || die "no tombstone in $run"
harrowmossctl runs
find "$run" -type f | sort
echo "record: recorded and harvested"
