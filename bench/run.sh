#!/usr/bin/env bash
# Compares what publishing costs: every installed peer (FFmpeg, GStreamer, a bare librtmp loop) and
# every mode of ours, plain and on rtmps, on this machine.
#
#   bench/run.sh [--install] [--rounds N] [--seconds N] [--only TEXT] [--build FOLDER]
#
# Makes the reference clip (1080p30, 6 Mb/s H.264, 128 kb/s AAC), starts its own servers, runs all
# modes in turn, N rounds (5), and leaves results.txt, ratios.png and runs.json (every single
# figure) in bench/results.
#   --install   installs the peers and what the benchmarks need from Debian first
#   --seconds   the length of the clip (10)
#   --only      tuned FFmpeg and the modes whose name has TEXT in it alone
#   --build     programs that are built already; without it the preset "bench" is built
set -euo pipefail
cd "$(dirname "$0")/.."

fail() { printf 'run.sh: %s\n' "$1" >&2; exit 1; }
usage() { sed -n '2,/^set /{/^set /!s/^# \{0,1\}//p}' "$0"; }
peers=(ffmpeg strace iproute2 openssl gnuplot-nox python3 libbenchmark-dev valgrind
       gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good
       gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly)

rounds=5 seconds=10 only='' build='' install=false
while [ $# -gt 0 ]; do
  case $1 in
    --install) install=true; shift ;;
    --rounds) rounds=${2:?--rounds needs a number}; shift 2 ;;
    --seconds) seconds=${2:?--seconds needs a number}; shift 2 ;;
    --only) only=${2:?--only needs a text}; shift 2 ;;
    --build) build=${2:?--build needs a folder}; shift 2 ;;
    --help) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
  esac
done

if $install; then
  root=()
  [ "$(id -u)" -eq 0 ] || root=(sudo)
  "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q install -y --no-install-recommends \
    "${peers[@]}" >/dev/null || fail "the peers could not be installed"
fi
for program in ffmpeg strace ss openssl python3; do
  command -v $program >/dev/null || fail "$program is missing (--install installs it)"
done
if [ -z "$build" ]; then
  build=build/bench
  [ -f $build/build.ninja ] || cmake --preset bench
  cmake --build --preset bench
fi
[ -x "$build/nimbo-host" ] || fail "$build holds no nimbo-host"
exec python3 bench/run.py --build "$build" --results bench/results --rounds "$rounds" \
  --seconds "$seconds" --only "$only"
