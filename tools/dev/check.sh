# Sourced by ./dev: ./dev check, what a change must pass.

our_sources() { git ls-files -co --exclude-standard -- '*.cpp' '*.h'; }

# No failure may pass for "nothing found": neither git's, nor a file's, nor that of a pattern that is no regular
# expression. The comments are taken out once for all patterns, and a pattern is one grep.
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
    files=(/dev/null)  # grep without any file would read the table
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

# A folder of the daemon includes headers of folders to its left; the client and the platform's stand-ins are above
# nothing but what is named here.
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

# The suites that have threads: everything under the thread sanitizer would take as long as the rest
# of the check, and it lets no signal through to code that it runs in its own time.
threaded='^(Collector|Feedback|Logcat|Mobile|NotedSignals|OtherThreads|OwnIds|PropertyArea|Props|ReapAny|RotateFpLogs|Rotation|SelfLog|UtcOffset|WaitReady|WaitWithin)'

# Runs compilers, and no code of this build.
not_under_asan='^DeviceKit\.'

check_style() {
  say "-- format"
  our_sources | xargs clang-format --dry-run -Werror || die "run: clang-format -i on the files above"
  say "-- banned calls"
  check_banned
  say "-- layers"
  check_layers
}

# Two builds see all of it: g++ with everything on, as it is shipped, and clang++ with the address and
# undefined behaviour sanitizers. The third has the thread sanitizer.
# Under a sanitizer everything is several times slower, but the daemon's own bounds (2 s for the property files)
# stay: fewer tests at a time.
check() {
  check_style
  say "-- device kit"
  tools/device/check || die "the device kit (above)"
  build release
  run_tests release -C Trials  # with short rounds of ./dev faults and ./dev soak
  build asan
  say "-- address and undefined behaviour sanitizers, without $not_under_asan"
  run_tests asan -j 4 -E "$not_under_asan"
  fuzz_briefly
  build tsan "${phone_targets[@]}" pure_tests inphone_tests system_tests
  say "-- thread sanitizer: $threaded"
  run_tests tsan -j 2 -R "$threaded"
  say "-- all checks passed after $SECONDS s"
}
