#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests.
#
#   ./test.sh [--fast | --soak | --packages] [CTEST-ARGUMENT...]
#
# Presets one after the other: release (the artefacts, against a real server, and what the pages of
# the documentation say), armhf (cross-built for 32-bit ARM, run by qemu), debug with the checks of
# the sources, stock (the wire tests with librtmp's own transport), fuzz (the fuzzers on their seeds
# and a little more), then with address and undefined-behaviour, and with thread sanitizer. Other
# arguments go to ctest (-R NAME, -j 1); with them only debug and the sanitizers run. While tests run,
# which mostly wait, the next preset is built. Ends with ctest's summary line, and at the first preset
# that fails.
#
# --fast      debug alone, without the linter, the plug-in's build without the host, and the fault matrix
# --soak      what takes longer instead: the fault matrix with its real deadlines, a thousand lost
#             connections, a server that is frozen for a minute, links that are too slow, ten minutes
#             each of a server that does its worst and of one that is killed every 5 s; the figures
#             lie in build/reliability.md
# --packages  builds the Debian packages instead, installs and tries them in a Debian of their own,
#             and compares two builds of the plug-in
set -euo pipefail
cd "$(dirname "$0")"

presets=(debug asan tsan)
arguments=()
fast=false
soak=false
packages=false
for argument in "$@"; do
  case $argument in
    -h | --help) sed -n '2,/^set /{/^set /!s/^# \{0,1\}//p}' "$0"; exit 0 ;;
    --fast) fast=true ;;
    --soak) soak=true ;;
    --packages) packages=true ;;
    *) arguments+=("$argument") ;;
  esac
done
if $fast; then
  presets=(debug)
  arguments+=(-LE 'lint|waiting|checks')
elif [ ${#arguments[@]} -eq 0 ]; then
  presets=(release armhf debug stock fuzz asan tsan)
fi

fail() { printf 'test.sh: %s\n' "$1" >&2; exit 1; }
# What begins now, and how long after the start.
heading() { printf '\n== %s (%d:%02d)\n' "$1" $((SECONDS / 60)) $((SECONDS % 60)); }

# build PRESET [CMAKE-ARGUMENT...]
build() {
  local preset=$1 log=build/test-$1.log
  shift
  heading "Building $preset"
  mkdir -p build
  cmake --preset "$preset" >"$log" 2>&1 ||
    { tail -n 15 "$log" >&2; fail "configuring $preset failed"; }
  if [ -t 1 ]; then
    cmake --build --preset "$preset" "$@"
  else
    cmake --build --preset "$preset" "$@" >>"$log" 2>&1 ||
      { grep -E -A 3 ': error|: undefined|CMake Error' "$log" | head -n 40 >&2; false; }
  fi || fail "building $preset failed"
}

# run PRESET [CTEST-ARGUMENT...]: the tests that mostly wait first, many at a time. With a sanitizer each
# attack meets each kind of publisher once, not both with and without TLS.
run() {
  local preset=$1 cores every=()
  shift
  heading "Testing $preset"
  cores=$(nproc)
  if [ $# -eq 0 ] && [[ $preset =~ debug|san ]]; then
    [ "$preset" = debug ] || every=(-E '(Attacked[.].*(PusherTls|Client|ClientInPlaceTls|LiveTls)|Connecting[.].*Live) ')
    ctest --preset "$preset" -L waiting -j $((cores * 4)) "${every[@]}"
    ctest --preset "$preset" -L interop -j $((cores * 2))
    set -- -LE 'waiting|interop'
  elif [ "${2:-}" = interop ]; then
    cores=$((cores * 2))
  fi
  ctest --preset "$preset" -j "$cores" "$@"
}

# What a preset has to be built of: of release the artefacts alone, whose tests are those that drive
# the program from outside.
prepare() {
  case $1 in
    release) build release --target nimbo-host pluginrtmp pluginlive nimbo-av nimbo-monitor ;;
    stock) build stock --target pluginrtmp rtmp_plugin_test ;;
    armhf)
      heading "Making the armhf sysroot"
      mkdir -p build
      tools/armhf-sysroot --av build/armhf-sysroot >build/test-armhf-sysroot.log 2>&1 ||
        { tail -n 5 build/test-armhf-sysroot.log >&2; fail "the armhf sysroot could not be made"; }
      build armhf
      ;;
    *) build "$1" ;;
  esac
}
# The same in the background, in a process group of its own, behind the tests that run meanwhile.
beside=''
prepare_beside() {
  set -m
  (
    renice -n 19 "$BASHPID" >/dev/null
    prepare "$1" | cat
  ) </dev/null &
  beside=$!
  set +m
}
trap '[ -z "$beside" ] || kill -- "-$beside" 2>/dev/null || true' EXIT

tools/install-deps || fail "what is needed could not be installed"
if $soak; then
  build release --target nimbo-host pluginrtmp pluginlive nimbo-av nimbo-monitor rtmp_fault_test
  heading "Meeting every fault"
  tools/reliability build/release >build/reliability.md || fail "see build/reliability.md"
  cat build/reliability.md
  NIMBO_FROZEN_SECONDS=60 run release -L interop
  heading "Publishing over slow links"
  tools/slow-link build/release --side-by-side --bound | tee -a build/reliability.md
  heading "Publishing to a server that does its worst"
  tools/chaos build/release | tee -a build/reliability.md
  build asan --target nimbo-host pluginrtmp nimbo-av
  heading "Killing servers"
  tools/reconnect-soak build/asan --minutes 10 | tee -a build/reliability.md
  exit
fi
if $packages; then
  build release --target nimbo-host pluginrtmp pluginlive nimbo-av
  run release -L packages
  exit
fi
for i in "${!presets[@]}"; do
  preset=${presets[i]}
  if [ -z "$beside" ]; then prepare "$preset"; else wait "$beside"; fi
  beside=''
  [ $((i + 1)) -eq ${#presets[@]} ] || prepare_beside "${presets[i + 1]}"
  case $preset in
    release) tests=(-L interop) ;;
    stock) tests=(-R '^(Pusher|Client)') ;;
    *) tests=() ;;
  esac
  run "$preset" "${tests[@]}" "${arguments[@]}"
done
