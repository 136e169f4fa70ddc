# Runs in a phone: RSS and PSS of the daemon's processes, after the start and while every logger type captures.
# Only processes of the daemon's own program count: a logcat or a script is the platform's memory.
show() {
  echo "$1"
  printf '  %-16s %8s %8s %8s   KiB\n' process RSS PSS private
  for process in /proc/[0-9]*; do
    [ "$(readlink "$process/exe")" = /system_ext/bin/harrowmossd ] || continue
    rss=0 pss=0 private=0
    while read -r key value _; do
      case $key in
        Rss:) rss=$value ;;
        Pss:) pss=$value ;;
        Private_Clean:|Private_Dirty:) private=$((private + value)) ;;
      esac
    done < "$process/smaps_rollup"
    printf '  %-16s %8d %8d %8d\n' "$(cat "$process/comm")" "$rss" "$pss" "$private"
    all_pss=$((${all_pss:-0} + pss))
    all=$((${all:-0} + 1))
  done
  printf '  %-16s %8s %8d   of %d processes\n' all '' "$all_pss" "$all"
  unset all_pss all
}
until [ -s /data/misc/zelkalog/.logger/kernel_pmic.txt ]; do sleep 0.1; done
show 'after the start'
harrowmossctl start all > /dev/null
show 'every type captures'
