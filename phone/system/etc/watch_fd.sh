# watch_fd.sh: prints who has how many open descriptors, once a second, until it is killed.
while :; do
  date
  for process in /proc/[0-9]*; do
    set -- $process/fd/*
    name=$(cat $process/comm 2>/dev/null) || continue
    echo "${process#/proc/} $name $#"
  done
  sleep 1
done
