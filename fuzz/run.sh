#!/usr/bin/env bash
# Builds the fuzzers and runs them one after the other.
#
#   fuzz/run.sh [SECONDS] [FUZZER...]   each for so long (60)
#   fuzz/run.sh --smoke                 each on its seeds and a fixed number of inputs more
#
# FUZZER: h264, aac, set_up, set_up_tls, inbound, inbound_tls, config, property; without one, all. Inputs that reached
# something new are kept in build/fuzz/corpus for the next time, inputs that failed in
# build/fuzz/crashes. Ends with 1 when there was one.
set -euo pipefail
cd "$(dirname "$0")/.."

fail() { printf 'fuzz: %s\n' "$1" >&2; exit 1; }

smoke=false
seconds=60
fuzzers=()
for argument in "$@"; do
  case $argument in
    -h | --help) sed -n '2,/^set /{/^set /!s/^# \{0,1\}//p}' "$0"; exit 0 ;;
    --smoke) smoke=true ;;
    [1-9]*) seconds=$argument ;;
    *)
      [ -d "fuzz/seeds/$argument" ] || fail "there is no fuzzer \"$argument\"; see --help"
      fuzzers+=("$argument")
      ;;
  esac
done
if [ ${#fuzzers[@]} -eq 0 ]; then mapfile -t fuzzers < <(ls fuzz/seeds); fi

tools/install-deps || fail "what is needed could not be installed"
build=build/fuzz
mkdir -p "$build"
{ cmake --preset fuzz && cmake --build --preset fuzz; } >"$build/build.log" 2>&1 ||
  { tail -n 30 "$build/build.log" >&2; fail "building failed"; }
if $smoke; then exec ctest --preset fuzz -j "$(nproc)"; fi

export UBSAN_OPTIONS=print_stacktrace=1
failed=()
for fuzzer in "${fuzzers[@]}"; do
  printf '\n== %s\n' "$fuzzer"
  mkdir -p "$build/corpus/$fuzzer"
  options=(-max_total_time="$seconds" -timeout=30 -close_fd_mask=1 -print_final_stats=1
           -artifact_prefix="$build/crashes/$fuzzer-")
  if [ -f "fuzz/$fuzzer.dict" ]; then options+=(-dict="fuzz/$fuzzer.dict"); fi
  "$build/fuzz_$fuzzer" "${options[@]}" "$build/corpus/$fuzzer" "fuzz/seeds/$fuzzer" 2>&1 |
    tee "$build/$fuzzer.log" | grep --line-buffered -aE \
      '(INITED|pulse|DONE) |number_of_exec|per_sec|does not hold|ERROR|SUMMARY|Test unit' ||
    failed+=("$fuzzer")
done
[ ${#failed[@]} -eq 0 ] || fail "failed: ${failed[*]}; see $build/FUZZER.log and $build/crashes"
