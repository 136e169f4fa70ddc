# Sourced by ./dev: ./dev check, what a change must pass.

our_sources() { git ls-files -co --exclude-standard -- '*.cpp' '*.h'; }

# Errors of git, unreadable files and invalid patterns must not look like "nothing found". Comments are removed once
# for all patterns; each pattern is one grep.
check_banned() {
  local pattern allowed reason sources file files found status bad=0
  sources=$(our_sources)
  [ -n "$sources" ] || die "git lists no sources here"
  mapfile -t sources <<< "$sources"
  rm -rf build/banned
  mkdir -p build/banned
  cp --parents -- "${sources[@]}" build/banned
  (cd build/banned && sed -i 's:^//.*::; s:[[:space:]]//.*::' -- "${sources[@]}")
  while IFS=$'\t' read -r pattern allowed reason; do
    case $pattern in ''|'#'*) continue ;; esac
    files=(/dev/null)  # without a file grep would read the table from stdin
    for file in "${sources[@]}"; do
      [ "$allowed" != - ] && [[ $file =~ $allowed ]] || files+=("$file")
    done
    status=0
    found=$(cd build/banned && grep -nE -- "$pattern" "${files[@]}") || status=$?
    [ $status -le 1 ] || die "tools/banned.txt: $pattern"
    [ $status = 0 ] || continue
    bad=1
    printf '%s\n   %s\n' "$found" "$reason" >&2
  done < tools/banned.txt
  [ $bad = 0 ] || die "banned calls (see tools/banned.txt)"
  rm -r build/banned
}

# A folder of the daemon includes only headers of folders to its left; client and platform only those named here.
layers="base model protocol selflog storage debuglog feedback input catchers daemon"
check_layers() {
  local folder below="" found
  local -A may=([client]="base model protocol" [platform]="base model")
  for folder in $layers; do
    may[$folder]=$below
    below+="$folder "
  done
  found=$(for folder in "${!may[@]}"; do
    git grep -nE '^#include "[a-z]+/' -- "$folder/*.cpp" "$folder/*.h" |
      grep -vE "#include \"(${may[$folder]// /|}|$folder)/" || [ $? = 1 ]
  done)
  [ -z "$found" ] || die "includes of a folder that is not below (see docs/architecture.md):"$'\n'"$found"
}

# Suites with threads, by the beginnings of their names. All tests under the thread sanitizer would take as long as the
# rest of the check, and it delays signals.
threaded=(Collector DeferredSignals Feedback Logcat Mobile OtherThreads OwnIds PropertyArea Props RotateFpLogs SelfLog
  UtcOffset WaitReady WaitWithin)

# A suite that was renamed must not drop out of the run unnoticed.
check_threaded() {
  local name known
  known=$(ctest --test-dir build/tsan -N)
  for name in "${threaded[@]}"; do
    grep -q ": $name" <<< "$known" || die "no test begins with $name (threaded in tools/dev/check.sh)"
  done
}

# These tests run compilers, not code of this build.
not_under_asan='^DeviceKit\.'

check_version() {
  local version
  version=$(sed -n 's/.*kReleaseVersion.*"\(.*\)".*/\1/p' model/version.h)
  grep -m 1 '^## ' CHANGELOG.md | grep -q "^## $version " || die "CHANGELOG.md does not begin with version $version"
}

check_style() {
  say "-- format"
  our_sources | xargs clang-format --dry-run -Werror || die "run: clang-format -i on the files above"
  say "-- banned calls"
  check_banned
  say "-- layers"
  check_layers
  check_version
}

# Two builds run all tests: g++ release, and clang++ with the address and undefined behaviour sanitizers. The third
# has the thread sanitizer. Sanitized code is several times slower, but the daemon's time limits (2 s for the property
# files) stay the same: fewer tests in parallel.
check() {
  check_style
  say "-- device kit"
  tools/device/check || die "the device kit (above)"
  build release
  run_tests release -C Trials  # with Adb.docs, short rounds of ./dev faults and ./dev soak
  build asan
  say "-- address and undefined behaviour sanitizers, without $not_under_asan"
  run_tests asan -j 4 -E "$not_under_asan"
  fuzz_briefly
  build tsan "${phone_targets[@]}" pure_tests inphone_tests system_tests
  check_threaded
  say "-- thread sanitizer: ${threaded[*]}"
  run_tests tsan -j 2 -R "^($(IFS='|'; echo "${threaded[*]}"))"
  say "-- all checks passed after $SECONDS s"
}
