#!/usr/bin/env bash
# Shows the plug-in at work: installs what is missing, builds, publishes, and reports.
#
#   ./publish.sh             publishes the simulated camera to a private RTMP server on loopback,
#                            10 s with the stand-alone pusher and 10 s with the client element,
#                            and reports what arrived there
#   ./publish.sh URL         publishes the simulated camera for 10 s to URL
#   ./publish.sh URL INPUT   publishes a media file (anything that libavformat opens) to URL
#   ./publish.sh --monitor [--duration SECONDS]
#                            publishes the simulated camera to a private server until it is ended
#                            (Ctrl-C), and shows the picture and how it goes on a page for a browser
#
# The private server takes a free port, or the one that the environment variable PORT names. What
# arrived, and a picture from each, is left in build/published/.
set -euo pipefail
cd_from=$PWD
cd "$(dirname "$0")"

seconds=10
host=build/release/nimbo-host
published=build/published

fail() { printf 'publish.sh: %s\n' "$1" >&2; exit 1; }
step() { printf '\n== %s\n' "$1"; }

monitor=false
duration=()
if [ "${1:-}" = --monitor ]; then
  monitor=true
  shift
  if [ "${1:-}" = --duration ] && [ $# -eq 2 ]; then
    duration=(--duration "$2")
    shift 2
  fi
  [ $# -eq 0 ] || set -- - - -  # wrong usage
fi
[ $# -le 2 ] || { sed -n '2,/^set /{/^set /!s/^# \{0,1\}//p}' "$0" >&2; exit 2; }
url=${1:-}
input=${2:-}
case $url in
  -h | --help) sed -n '2,/^set /{/^set /!s/^# \{0,1\}//p}' "$0"; exit 0 ;;
  '' | rtmp*://*) ;;
  *) fail "\"$url\" is no RTMP address (rtmp://HOST[:PORT]/APPLICATION/STREAM)" ;;
esac
case $input in
  '' | /* | *://*) ;;
  *) input=$cd_from/$input ;;
esac
case $input in
  '' | *://*) ;;
  *) { [ -f "$input" ] && [ -r "$input" ]; } || [ -c "$input" ] || fail "no such file: $2" ;;
esac

children=()
tidy() {
  trap '' INT TERM
  local child
  for child in "${children[@]}"; do kill "$child" 2>/dev/null || true; done
  for child in "${children[@]}"; do wait "$child" 2>/dev/null || true; done
}
trap tidy EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# Runs a child that dies with this script, and waits for it.
run() {
  "$@" </dev/null &
  children+=($!)
  local status=0
  wait $! || status=$?
  unset 'children[-1]'
  return $status
}

build() {
  mkdir -p build
  local targets=(nimbo-host pluginrtmp pluginlive nimbo-av)
  ! $monitor || targets+=(nimbo-monitor)
  local log=build/publish-build.log
  {
    cmake --preset release >"$log" 2>&1 &&
      if [ -t 1 ]; then
        cmake --build --preset release --target "${targets[@]}"
      else
        cmake --build --preset release --target "${targets[@]}" >>"$log" 2>&1
      fi
  } || { grep -E ': error|: undefined|CMake Error' "$log" | head -n 5 >&2; fail "the build failed ($log)"; }
}

tools/install-deps || fail "what is needed could not be installed"
step "Building"
build

if [ -n "$url" ]; then
  step "Publishing ${input:-the simulated camera} to $url"
  [ -n "$input" ] || duration=(--duration $seconds)
  run "$host" publish "${input:-test:}" "$url" "${duration[@]}" || fail "publishing to $url failed"
  exit 0
fi

step "Starting a private RTMP server"
rm -rf "$published"
mkdir -p "$published"
server_folder=$(mktemp -d)
options=(${PORT:+--port "$PORT"})
! $monitor || options+=(--hls --no-record)
exec {said}< <(exec tools/ingest-server "$server_folder" "${options[@]}")
children+=($!)
trap 'tidy; rm -rf "$server_folder"' EXIT
read -r address <&"$said" || fail "the server did not start"
printf 'listening at %s\n' "$address"

if $monitor; then
  read -r playlists <&"$said" || fail "the server serves no playlists"
  step "Publishing the simulated camera; the page to open is named below as \"monitor\""
  run "$host" publish test: "$address/camera" --monitor 0 --picture "$playlists/camera.m3u8" \
    "${duration[@]}" || fail "publishing failed"
  exit 0
fi

step "Publishing the simulated camera for $seconds s with the pusher"
run "$host" push --url "$address/pusher" --duration $seconds || fail "publishing failed"
step "Publishing the simulated camera for $seconds s with the client"
run "$host" publish test: "$address/client" --duration $seconds || fail "publishing failed"
tidy
children=()

# report NAME: what a recording holds.
report() {
  local name=$1 recording=$published/$1.flv picture=$published/$1.png
  local recorded=("$server_folder"/recordings/"$name"-*.flv)
  [ -s "${recorded[0]}" ] || fail "nothing was recorded"
  mv "${recorded[0]}" "$recording"

  probe() { ffprobe -v error "$@" "$recording"; }
  local complaints
  complaints=$(ffmpeg -v error -i "$recording" -f null - 2>&1) || true
  [ -z "$complaints" ] || fail "the decoder complains: $(printf '%s' "$complaints" | head -n 1)"
  # Time stamps are those of the capture; the sequence headers in front have none.
  local duration video audio
  duration=$(probe -select_streams v:0 -show_entries packet=pts_time,duration_time -of csv=p=0 |
    awk -F, 'NR == 1 { first = $1 } { last = $1 + $2 } END { printf "%.1f", last - first }')
  video=$(probe -select_streams v:0 -count_frames -of csv=p=0 \
    -show_entries stream=codec_name,profile,width,height,r_frame_rate,nb_read_frames)
  audio=$(probe -select_streams a:0 -count_frames -of csv=p=0 \
    -show_entries stream=codec_name,profile,sample_rate,channels,nb_read_frames)
  [ -n "$video" ] || fail "no video arrived"
  [ -n "$audio" ] || fail "no audio arrived"
  ffmpeg -v error -y -ss "$((seconds / 2))" -i "$recording" -frames:v 1 "$picture" ||
    fail "no picture could be taken from the recording"

  local vcodec vprofile width height rate frames acodec aprofile samples channels aframes
  IFS=, read -r vcodec vprofile width height rate frames <<<"$video"
  IFS=, read -r acodec aprofile samples channels aframes <<<"$audio"
  printf 'video      %s (%s) %sx%s, %s frames, %s fps\n' "$vcodec" "$vprofile" "$width" "$height" \
    "$frames" "$rate"
  printf 'audio      %s (%s) %s Hz, %s channels, %s frames\n' "$acodec" "$aprofile" "$samples" \
    "$channels" "$aframes"
  printf 'duration   %s s\n' "$duration"
  printf 'size       %s bytes\n' "$(stat -c %s "$recording")"
  printf 'recording  %s\npicture    %s\n' "$recording" "$picture"
}

set -E  # inside the function, too
trap 'fail "looking at the recordings failed"' ERR
for name in pusher client; do
  step "What arrived from the $name"
  report $name
done
