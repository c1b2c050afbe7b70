#!/usr/bin/env bash
# Counts the instructions that a frame with its sound costs: in the client element, and in the whole
# program, by callgrind, for a fixed input. Unlike times they do not depend on what else the machine
# does.
#
#   bench/instructions.sh [BUILD-FOLDER]        (build/bench)
set -euo pipefail
cd "$(dirname "$0")/.."

fail() { printf 'instructions.sh: %s\n' "$1" >&2; exit 1; }
usage() { sed -n '2,/^set /{/^set /!s/^# \{0,1\}//p}' "$0"; }
case ${1:-} in --help) usage; exit 0 ;; -*) usage >&2; exit 2 ;; esac
build=${1:-build/bench}
[ -x "$build/nimbo-host" ] || fail "$build holds no nimbo-host"
for program in valgrind callgrind_annotate ffmpeg; do
  command -v $program >/dev/null || fail "$program is missing"
done

folder=$(mktemp -d)
server=''
tidy() {
  [ -z "$server" ] || { kill "$server" && wait "$server"; } 2>/dev/null || true
  rm -rf "$folder"
}
trap tidy EXIT

for seconds in 2 4; do
  ffmpeg -v error -nostdin -f lavfi -i testsrc2=s=1920x1080:r=30,noise=alls=12:allf=t:all_seed=1 \
    -f lavfi -i anoisesrc=c=pink:r=44100:a=0.3:seed=1 -t $seconds -map 0 -pix_fmt yuv420p \
    -c:v libx264 -preset ultrafast -profile:v baseline -b:v 6M -maxrate 6M -bufsize 6M -g 30 \
    -threads 1 -x264-params slices=1:scenecut=0:repeat-headers=1:nal-hrd=cbr \
    -bsf:v h264_mp4toannexb "$folder/$seconds.h264" -map 1 -t $seconds -c:a aac -b:a 128k "$folder/$seconds.aac"
done
exec {said}< <(tools/ingest-server "$folder/server")
server=$!
read -r address <&"$said" || fail "no server"

# instructions SECONDS OPTIONS: collected while `collect` (a function, or nothing for all)
instructions() {
  local seconds=$1 collect=$2
  shift 2
  RTMP_TLS_VERIFY=0 valgrind --tool=callgrind --callgrind-out-file="$folder/out" \
    ${collect:+--toggle-collect="$collect"} "$build/nimbo-host" publish "$folder/$seconds.h264" \
    "$address/s" --audio "$folder/$seconds.aac" --fast "$@" >"$folder/log" 2>&1 ||
    fail "the run failed: $(tail -n 3 "$folder/log")"
  rm -f "$folder"/server/recordings/*
  sed -n 's/^\(totals\|summary\): *//p' "$folder/out" | head -n 1
}

# What the second half of the longer run costs, so that starting and ending count for nothing.
frames=60
element='nimbo::plugin::rtmp::EleRtmpClient::ReceivePacket*'
printf '%-20s %15s %15s\n' 'instructions/frame' 'client element' 'whole program'
for mode in copying zero-copy; do
  options=()
  [ $mode = copying ] || options=(--no-copy)
  inside=$(($(instructions 4 "$element" "${options[@]}") - $(instructions 2 "$element" "${options[@]}")))
  whole=$(($(instructions 4 '' "${options[@]}") - $(instructions 2 '' "${options[@]}")))
  printf '%-20s %15d %15d\n' "$mode" $((inside / frames)) $((whole / frames))
done
