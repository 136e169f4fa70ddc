# Sourced by ./dev: ./dev fuzz.

# The names in fuzz/targets.txt.
fuzz_targets() { awk '/^[a-z]/ { print $1 }' fuzz/targets.txt; }

# fuzz_one TARGET SECONDS: prints a failing input, because the phone is deleted.
fuzz_one() {
  local target=$1 seconds=$2 build=build/asan corpus arguments=() options=() file symbolizer
  corpus=$(awk -v target="$target" '$1 == target { print $3 }' fuzz/targets.txt)
  for file in "$corpus"/*; do
    arguments+=(--file "$file=/data/local/tmp/corpus/$(basename "$file")")
  done
  if [ -f "fuzz/$target.dict" ]; then
    arguments+=(--file "fuzz/$target.dict=/data/local/tmp/dict")
    options+=(-dict=/data/local/tmp/dict)
  fi
  if symbolizer=$(command -v llvm-symbolizer); then
    symbolizer=$(readlink -f "$symbolizer")
    arguments+=(--file "$symbolizer=/data/local/tmp/llvm-symbolizer")
    arguments+=(--env ASAN_SYMBOLIZER_PATH=/data/local/tmp/llvm-symbolizer)
  fi
  with_root $build/phone/phone --no-daemon --file "$build/fuzz/fuzz_$target=/data/local/tmp/fuzz" "${arguments[@]}" -- sh -c '
      found=/data/local/tmp/found
      /data/local/tmp/fuzz -exact_artifact_path=$found -close_fd_mask=1 -print_funcs=0 -timeout=25 -print_final_stats=1 "$@" /data/local/tmp/corpus
      status=$?
      [ ! -f $found ] || { echo "the failing input, for base64 -d:"; base64 $found; } >&2
      exit $status' fuzz "-max_total_time=$seconds" "${options[@]}"
}

fuzz() {
  local target=${1:-} seconds=${2:-60}
  if [ -z "$target" ]; then
    fuzz_targets
    return
  fi
  fuzz_targets | grep -qx -- "$target" || die "no fuzz target $target"
  build asan phone "fuzz_$target"
  fuzz_one "$target" "$seconds"
}

# Every target for a few seconds: replays the corpora and finds shallow faults.
fuzz_briefly() {
  local targets target seconds=${1:-3}
  targets=$(fuzz_targets)
  build asan phone fuzzers
  for target in $targets; do
    quietly "fuzzing $target" "" fuzz_one "$target" "$seconds"
  done
}
