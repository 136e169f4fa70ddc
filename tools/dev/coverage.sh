# Sourced by ./dev: ./dev coverage.

# Counters are shared mappings of a file per program, so killed processes count too.
coverage() {
  local build=build/coverage objects tests=0
  objects=(-object $build/tests/inphone_tests -object $build/tests/pure_tests -object $build/client/harrowmossctl)
  if [ $# -eq 0 ]; then
    build coverage
    rm -rf $build/profiles
    mkdir -p $build/profiles
    run_tests coverage || tests=$?
    llvm-profdata merge -o $build/all.profdata $build/profiles/*.profraw
    llvm-cov report $build/daemon/harrowmossd "${objects[@]}" -instr-profile=$build/all.profdata > $build/coverage.txt
    awk -f tools/coverage.awk $build/coverage.txt
    return $tests
  fi
  llvm-cov show $build/daemon/harrowmossd "${objects[@]}" -instr-profile=$build/all.profdata "$@"
}
