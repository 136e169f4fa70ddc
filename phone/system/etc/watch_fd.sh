# watch_fd.sh: prints the number of open descriptors of each process once a second, until killed.
while :; do
  date
  for process in /proc/[0-9]*; do
    set -- $process/fd/*
    name=$(cat $process/comm 2>/dev/null) || continue
    echo "${process#/proc/} $name $#"
  done
  sleep 1
done
