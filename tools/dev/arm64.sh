# Sourced by ./dev: ./dev arm64.

# Runs the tests that work on the user-mode emulator; prints the others with the reason.
arm64_tests() {
  local pattern reason left_out=()
  while IFS=$'\t' read -r pattern reason; do
    case $pattern in ''|'#'*) continue ;; esac
    left_out+=("$pattern")
    say "-- left out: $pattern: $reason"
  done < tests/arm64/left_out.txt
  say "-- these run in the emulated guest: ./dev arm64 guest left_out_tests"
  say "-- left out: every system test: they boot phones of the arm64 build, which needs an arm64 kernel"
  with_root ctest --test-dir build/arm64 -j 2 --output-on-failure --timeout 300 --no-tests=error \
    -E "$(IFS='|'; echo "${left_out[*]}")"
}

# arm64 [guest [STEP...]]
arm64() {
  case ${1:-tests} in tests|guest) ;; *) die "usage: ./dev arm64 [guest [STEP...]]" ;; esac
  if [ "${1:-tests}" = tests ]; then
    build release "${phone_targets[@]}"  # the emulated tests run in its phone
    build arm64 "${phone_targets[@]}" pure_tests inphone_tests
    arm64_tests
  else
    shift
    setup "arm64 guest"
    build arm64 "${phone_targets[@]}" inphone_tests uinput_touch
    phone/guest/guest build/arm64 "$@"
  fi
}
