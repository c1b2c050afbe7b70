#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests.
#
#   ./test.sh [--fast] [CTEST-ARGUMENT...]
#
# Presets one after the other: release (the artefacts against a real server, and the packages), armhf
# (cross-built for 32-bit ARM, run by qemu), debug with the checks of the sources, then with address
# and undefined-behaviour, and with thread sanitizer. --fast is debug alone, without the linter. Other
# arguments go to ctest (-R NAME, -j 1); with them only debug and the sanitizers run. Ends with
# ctest's summary line, and at the first preset that fails.
set -euo pipefail
cd "$(dirname "$0")"

presets=(debug asan tsan)
arguments=()
fast=false
for argument in "$@"; do
  case $argument in
    -h | --help) sed -n '2,/^set /{/^set /!s/^# \{0,1\}//p}' "$0"; exit 0 ;;
    --fast) fast=true ;;
    *) arguments+=("$argument") ;;
  esac
done
if $fast; then
  presets=(debug)
  arguments+=(-LE lint)
elif [ ${#arguments[@]} -eq 0 ]; then
  presets=(release armhf "${presets[@]}")
fi

fail() { printf 'test.sh: %s\n' "$1" >&2; exit 1; }

build() {
  local preset=$1 log=build/test-$1.log
  shift
  printf '\n== Building %s\n' "$preset"
  mkdir -p build
  if [ -t 1 ]; then
    { cmake --preset "$preset" >"$log" 2>&1 || { tail -n 15 "$log" >&2; false; }; } &&
      cmake --build --preset "$preset" "$@"
  else
    { cmake --preset "$preset" && cmake --build --preset "$preset" "$@"; } >"$log" 2>&1 ||
      { grep -E -A 3 ': error|: undefined|CMake Error' "$log" | head -n 40 >&2; false; }
  fi || fail "building $preset failed"
}

tools/install-deps || fail "what is needed could not be installed"
for preset in "${presets[@]}"; do
  case $preset in
    release)
      # The artefacts alone; their tests are those from outside.
      build release --target nimbo-host pluginrtmp nimbo-av
      tests=(-L 'interop|packages')
      ;;
    armhf)
      printf '\n== Making the armhf sysroot\n'
      mkdir -p build
      tools/armhf-sysroot --av build/armhf-sysroot >build/test-armhf-sysroot.log 2>&1 ||
        { tail -n 5 build/test-armhf-sysroot.log >&2; fail "the armhf sysroot could not be made"; }
      build armhf
      tests=()
      ;;
    *)
      build "$preset"
      tests=()
      ;;
  esac
  printf '\n== Testing %s\n' "$preset"
  ctest --preset "$preset" -j "$(nproc)" "${tests[@]}" "${arguments[@]}"
done
