# watch_fd.sh: prints the number of open descriptors per process every 10 seconds until it is killed. By
# policy it sees only the daemon's own processes.
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
