# watch_fd.sh: prints who has how many open descriptors, every 10 seconds, until it is killed. The
# policy shows it the daemon's own processes, on all builds.
while :; do
  date
  for process in /proc/[0-9]*; do
    name=$(cat "$process/comm" 2> /dev/null) || continue
    set -- "$process"/fd/*
    [ -e "$1" ] || [ -L "$1" ] || continue
    echo "${process#/proc/} $name $#"
  done
  sleep 10
done
