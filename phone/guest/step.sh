# Sourced by the scripts that run in a phone of the emulated guest.

# die WHAT: reports WHAT with the end of the log on the console and ends the step.
die() {
  echo "$(basename "$0" .sh): FAILED: $*"
  logcat -d | tail -n 30
  exit 1
}

# await WHAT COMMAND...: polls for two minutes; an emulated machine is slow.
await() {
  typeset what=$1 end=$((SECONDS + 120))
  shift
  until "$@"; do
    [ $SECONDS -lt $end ] || die "no $what within two minutes"
    sleep 0.1
  done
}

log_has() { logcat -d | grep -q -e "$1"; }
