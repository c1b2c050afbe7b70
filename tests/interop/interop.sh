#!/usr/bin/env bash
# Publishes with the program to a private nginx and looks at what it recorded.
#   tests/interop/interop.sh CASE NIMBO-HOST...
# CASE is one of the functions whose names begin with a capital; an emulator may stand in front of
# the program.
set -euo pipefail
case=${1:-}
host=("${@:2}")
tools=$(cd "$(dirname "$0")/../../tools" && pwd)
folder=$(mktemp -d)
children=()

finish() {
  local status=$?
  trap - EXIT
  local child
  for child in "${children[@]}"; do kill "$child" 2>/dev/null || true; done
  for child in "${children[@]}"; do wait "$child" 2>/dev/null || true; done
  [ -n "${KEEP:-}" ] || rm -rf "$folder"
  exit $status
}
trap finish EXIT
trap 'exit 1' INT TERM

fail() { printf 'FAILED: %s\n' "$1" >&2; exit 1; }

# until_true COMMAND...: true as soon as the command succeeds, false after a minute.
until_true() {
  local deadline=$((SECONDS + 60))
  until "$@"; do
    [ $SECONDS -lt $deadline ] || return 1
    sleep 0.1
  done
}

# start_server [OPTION...]: sets `address`, of the stream to publish, and with --tls `secure`.
start_server() {
  exec {said}< <(exec "$tools/ingest-server" "$folder/server" "$@")
  children+=($!)
  read -r address <&"$said" || fail "the server did not start"
  address=$address/stream
  if read -r secure <&"$said"; then secure=$secure/stream; fi
}

# push OPTION... and publish OPTION...: to their ends. The output is left in `log`.
log=$folder/log
push() { "${host[@]}" push "$@" </dev/null >"$log" 2>&1; }
publish() { "${host[@]}" publish "$@" </dev/null >"$log" 2>&1; }
# start WORD...: in the background; sets `publisher`.
start() {
  "${host[@]}" "$@" </dev/null >"$log" 2>&1 &
  publisher=$!
  children+=("$publisher")
}
# Ends the publisher with TERM; its exit code is the result.
stop() { kill -TERM "$publisher" && wait "$publisher"; }
# kill_server [SIGNAL [FOLDER]]
kill_server() { kill -"${1:-KILL}" "$(cat "${2:-$folder/server}/nginx.pid")"; }

recordings() { ls -tr "$folder"/server/recordings/*.flv 2>/dev/null; }
# told COUNT TEXT: so many lines of what the program says have it.
told() { [ "$(grep -c "$2" "$log")" -eq "$1" ]; }
newest() { recordings | tail -n 1; }
# recorded COUNT BYTES: there are so many recordings, and the newest is so long.
recorded() {
  [ "$(recordings | wc -l)" -eq "$1" ] && [ "$(stat -c %s "$(newest)")" -ge "$2" ]
}

# recorded_all COUNT: there are so many recordings of 100 kB.
recorded_all() { [ "$(find "$folder/server/recordings" -size +100k | wc -l)" -eq "$1" ]; }
decodes_clean() {
  local said
  # In the recording's own time base: in one of whole pictures two may fall on the same tick.
  said=$(ffmpeg -nostdin -v error -i "$1" -enc_time_base -1 -f null - 2>&1)
  [ -z "$said" ] || fail "the decoder says: $said"
}
# md5 FILE STREAM [OPTION...]: one hash a line, of its decoded frames or, with "-c copy", packets.
md5() {
  local file=$1 stream=$2
  shift 2
  ffmpeg -nostdin -v error -i "$file" -map "0:$stream" -fps_mode passthrough "$@" -f framemd5 - |
    awk -F', *' '!/^#/ { print $6 }'
}
same_pictures() {
  diff <(md5 "$1" v) <(md5 "$2" v) >"$folder/diff" || fail "pictures differ: $(head -n 4 "$folder/diff")"
  [ "$(md5 "$2" v | wc -l)" -gt 0 ] || fail "there are no pictures"
}
same_frames() {
  same_pictures "$@"
  diff <(md5 "$1" a -c copy) <(md5 "$2" a -c copy) >"$folder/diff" ||
    fail "sound packets differ: $(head -n 4 "$folder/diff")"
}
frames() { md5 "$1" v | wc -l; }

# The tags of a recording until both kinds were seen, as "video:SEQUENCE-HEADER".
first_tags() {
  python3 - "$1" <<'PYTHON'
import sys
data = open(sys.argv[1], "rb").read()
at, seen = 13, {}
while at + 13 <= len(data) and len(seen) < 2:
    kind, size = data[at], int.from_bytes(data[at + 1:at + 4], "big")
    name = {8: "audio", 9: "video"}.get(kind)
    if name and name not in seen:
        # The second byte of a tag's body: 0 for a sequence header in both codecs.
        seen[name] = "header" if data[at + 12] == 0 else "frame"
    at += 11 + size + 4
print(" ".join(f"{name}:{what}" for name, what in sorted(seen.items())))
PYTHON
}
# The recording is whole, from both sequence headers on.
begins_anew() {
  [ "$(first_tags "$1")" = "audio:header video:header" ] ||
    fail "the new recording starts with $(first_tags "$1")"
  decodes_clean "$1"
}

camera="h264-0,W=640,H=360,fr=30,br=1000000,gopTypeStr=ibbp,gop=30"

# source FILE OPTION...: 3 s of picture and sound.
source_file() {
  local file=$1
  shift
  ffmpeg -nostdin -v error -f lavfi -i testsrc2=s=1280x720:r=30 \
    -f lavfi -i sine=f=1000:r=48000 -t 3 -c:v libx264 -preset ultrafast -pix_fmt yuv420p -g 30 \
    -c:a aac "$@" "$file"
}
one_slice=(-bf 0 -x264-params slices=1:sliced-threads=0)

TheCameraArrivesWholeAndDecodesClean() {
  start_server
  push --url "$address" --encoder "$camera" --duration 5 || fail "push ended with $?"
  until_true recorded 1 100000 || fail "nothing was recorded"
  decodes_clean "$(newest)"
  # Time stamps without a hole: no picture was dropped on the way.
  ffprobe -v error -select_streams v -show_entries packet=pts_time -of csv=p=0 "$(newest)" |
    awk -F, 'NR > 1 && $1 - last > 0.060 { exit 1 } { last = $1 }' || fail "pictures are missing"
  local published
  published=$(sed -n 's/^Published .*: \([0-9]*\) video.*/\1/p' "$log")
  [ "$published" -ge 90 ] || fail "only $published pictures were published"
  [ "$(frames "$(newest)")" -eq "$published" ] ||
    fail "$(frames "$(newest)") of $published pictures arrived"
  local level
  level=$(ffmpeg -nostdin -i "$(newest)" -af volumedetect -vn -f null - 2>&1 |
    sed -n 's/.*mean_volume: \(-\{0,1\}[0-9]*\).*/\1/p')
  [ "$level" -gt -40 ] || fail "the tone is missing: $level dB"
  grep -q 'rtmp_sts=true' "$log" || fail "no status line"
}

ElementaryFilesArriveFrameByFrame() {
  source_file "$folder/source.mp4" "${one_slice[@]}" -af atrim=end=1  # the sound ends first
  ffmpeg -nostdin -v error -i "$folder/source.mp4" -c copy -map 0:v "$folder/v.h264" -c copy \
    -map 0:a "$folder/a.aac"
  start_server
  push --url "$address" --input "$folder/v.h264" --input "$folder/a.aac" || fail "push ended with $?"
  decodes_clean "$(newest)"
  same_frames "$folder/source.mp4" "$(newest)"
  publish "$folder/v.h264" "${address}2" --no-copy || fail "publish ended with $?"
  decodes_clean "$(newest)"
  same_pictures "$folder/source.mp4" "$(newest)"
}

AFileIsTranscodedWhereTheWireCannotDescribeIt() {
  source_file "$folder/source.mkv" -bf 2 -c:a libmp3lame
  start_server
  push --url "$address" --input "$folder/source.mkv" || fail "push ended with $?"
  decodes_clean "$(newest)"
  [ "$(frames "$(newest)")" -eq "$(frames "$folder/source.mkv")" ] || fail "pictures are missing"
  [ "$(ffprobe -v error -show_entries stream=codec_name -of csv=p=0 "$(newest)" | sort | xargs)" = \
    "aac h264" ] || fail "the recording has other codecs"
}

# packet_times FILE: when its pictures are shown, in ms behind the first one that is decoded.
packet_times() {
  ffprobe -v error -select_streams v -show_entries packet=pts_time -of csv=p=0 "$1" |
    awk -F, 'NR == 1 { first = $1 } $1 != "" { printf "%.0f\n", ($1 - first) * 1000 }'
}

# What several slices, reordered pictures, other parameter sets and other sound make of it is compared
# with what ffmpeg makes of the same file by copying.
WhatTheClassicClientCannotDescribePassesThroughAsItIs() {
  local picture=(-c:v libx264 -preset ultrafast -pix_fmt yuv420p)
  local deep=bframes=3:b-pyramid=normal:b-adapt=0:open-gop=1:keyint=15
  source_file "$folder/film.mp4" -t 2 "${picture[@]}" -x264-params $deep:slices=4 -ac 6
  source_file "$folder/half.mp4" -t 1 -ar 24000 -ac 1 "${picture[@]}" -x264-params $deep
  # Sound whose configuration says that the upper half of its band follows: HE-AAC.
  python3 - "$folder" <<'PYTHON'
import pathlib, sys
folder = pathlib.Path(sys.argv[1])
film = (folder / "half.mp4").read_bytes()
assert film.count(bytes.fromhex("56e500")) == 1
(folder / "he.mp4").write_bytes(film.replace(bytes.fromhex("56e500"), bytes.fromhex("56e598")))
PYTHON
  # Another size, and other parameter sets of the same numbers, from the second second on.
  source_file "$folder/one.ts" -t 1 "${picture[@]}" -x264-params $deep
  source_file "$folder/other.ts" -t 1 -output_ts_offset 1 "${picture[@]}" -s 320x180 -x264-params bframes=0:slices=2
  cat "$folder/one.ts" "$folder/other.ts" >"$folder/changing.ts"
  start_server
  local name ours theirs
  for name in film.mp4 he.mp4 changing.ts; do
    ffmpeg -nostdin -v error -i "$folder/$name" -c copy -f flv "$address" || fail "ffmpeg fails"
    theirs=$(newest)
    sleep 1.1  # recordings are called by the second
    publish "$folder/$name" "$address" --fast || fail "publish ended with $?: $(cat "$log")"
    ours=$(newest)
    [ "$ours" != "$theirs" ] || fail "nothing was recorded of $name"
    ! grep -q transcoded "$log" || fail "$name is transcoded"
    same_frames "$theirs" "$ours"
    same_pictures "$folder/$name" "$ours"
    paste <(packet_times "$theirs") <(packet_times "$ours") |
      awk '{ off = $1 - $2 } off > 1 || off < -1 { exit 1 }' || fail "$name has other times"
  done
  publish "$folder/film.mp4" "$address" --fast --plugin classic || fail "publish ended with $?"
  grep -q transcoded "$log" || fail "the classic client says that it can carry $name"
}

AKilledServerIsFoundAgain() {
  start_server
  start push --url "$address" --encoder "$camera"
  until_true recorded 1 100000 || fail "nothing was recorded"
  kill_server
  sleep 2
  kill -0 "$publisher" || fail "the host died with the server"
  start_server
  until_true recorded 2 200000 || fail "nothing was recorded after the restart"
  stop || fail "push ended with $?"
  begins_anew "$(newest)"
  grep -q 'reconnect success,continue' "$log" || fail "no line tells of the reconnection"
}

TermStopsCleanly() {
  start_server
  start push --url "$address" --encoder "$camera"
  until_true recorded 1 100000 || fail "nothing was recorded"
  stop || fail "push ended with $?"
  grep -q '^Published ' "$log" || fail "no summary"
  until_true grep -q deleteStream "$folder/server/error.log" || fail "the stream was not ended"
  decodes_clean "$(newest)"
}

ARefusedConnectionIsAFailure() {
  start_server
  kill_server
  wait "${children[0]}" || true
  local status=0
  push --url "$address" --encoder "$camera" || status=$?
  [ $status -eq 1 ] || fail "push ended with $status"
  grep -qF 'RTMP_Connect(_rtmp, __null) == 0' "$log" || fail "no failure line"
  grep -qF "nimbo-host: could not start publishing to $address" "$log" || fail "no last line"
}

ARefusedPublishIsAFailure() {
  start_server --deny
  local status=0
  push --url "$address" --encoder "$camera" || status=$?
  [ $status -eq 1 ] || fail "push ended with $status"
  grep -qF 'RTMP_ConnectStream(_rtmp, 0) == 0' "$log" || fail "no failure line"
}

AFileIsPublishedToTwoServersFrameByFrame() {
  source_file "$folder/source.mp4" "${one_slice[@]}"
  start_server
  publish "$folder/source.mp4" "$address" "${address}2" || fail "publish ended with $?"
  ! grep -aF $'\033[31m' "$log" || fail "something was told as a failure"
  local recording count=0
  for recording in $(recordings); do
    decodes_clean "$recording"
    same_frames "$folder/source.mp4" "$recording"
    count=$((count + 1))
  done
  [ $count -eq 2 ] || fail "$count recordings"
}

AFileIsPublishedFastAndInPlaceFrameByFrame() {
  source_file "$folder/source.mp4" "${one_slice[@]}"
  start_server
  "${host[@]}" publish "$folder/source.mp4" "$address" --fast --no-copy --json </dev/null >"$log" ||
    fail "publish ended with $?"
  decodes_clean "$(newest)"
  same_frames "$folder/source.mp4" "$(newest)"
  tail -n 1 "$log" | python3 -c '
import json, sys
client = json.loads(sys.stdin.read())["clients"][0]
assert client["video"] == 90 and client["gaps"] == sum(client["dropped"].values()) == 0, client' ||
    fail "the last status is wrong: $(tail -n 1 "$log")"
  # The last picture is sent before the program ends, even where it is the only one.
  source_file "$folder/one.mp4" "${one_slice[@]}" -an -frames:v 1
  publish "$folder/one.mp4" "${address}2" --fast || fail "publish ended with $?"
  [ "$(frames "$(newest)")" -eq 1 ] || fail "the only picture was lost"
}

ALargePictureIsCompleteFromTheSwitchOn() {
  source_file "$folder/source.mp4" "${one_slice[@]}" -s 1920x1080
  start_server
  publish "$folder/source.mp4" "$address" || fail "publish ended with $?"
  # The session is made anew for the first picture; nothing was recorded before.
  decodes_clean "$(newest)"
  same_pictures "$folder/source.mp4" "$(newest)"
  grep -q '1920/1080' "$log" || fail "no line tells of the switch"
}

AServerThatFailsHoldsUpNoOther() {
  source_file "$folder/source.mp4" "${one_slice[@]}"
  start_server
  local status=0
  publish "$folder/source.mp4" rtmp://127.0.0.1:1/live/nowhere "$address" || status=$?
  [ $status -eq 1 ] || fail "publish ended with $status"
  same_frames "$folder/source.mp4" "$(newest)"
}

# A server, and a client that publishes the camera to it. A picture of another size than this would
# make the session anew, with a recording of its own.
start_camera() {
  start_server
  start publish "test:W=1280,H=720,fr=15" "$address"
  until_true recorded 1 100000 || fail "nothing was recorded"
}

AClientFindsAKilledServerAgain() {
  start_camera
  kill_server
  until_true grep -q rtmp_reconnect_fail "$log" || fail "the loss was not told"
  start_server
  until_true recorded 2 200000 || fail "nothing was recorded after the restart"
  stop && fail "what was lost counts as published"
  begins_anew "$(newest)"
  local order
  order=$(grep -o 'rtmp_send_data_fail\|rtmp_reconnect_[a-z]*' "$log" | uniq | sed -n '1p;2p;$p' | xargs)
  [ "$order" = "rtmp_send_data_fail rtmp_reconnect_fail rtmp_reconnect_success" ] ||
    fail "the messages came as $order"
}

AServerThatIsAwayAtTheStartIsWaitedFor() {
  source_file "$folder/source.mp4" "${one_slice[@]}"
  start_server
  kill_server
  publish "$folder/source.mp4" "$address" --wait --duration 2 && fail "nobody was there"
  grep -q "cannot publish to" "$log" || fail "it is not told: $(cat "$log")"
  start push --url "${address}2" --input "$folder/source.mp4" --wait
  "${host[@]}" publish "$folder/source.mp4" "$address" --wait --retry-max 1 </dev/null \
    >"$folder/waiting" 2>&1 &
  local client=$!
  children+=("$client")
  sleep 2
  start_server
  wait "$client" || fail "publish ended with $?: $(tail -n 3 "$folder/waiting")"
  wait "$publisher" || fail "push ended with $?: $(tail -n 3 "$log")"
  local recording
  for recording in $(recordings); do same_frames "$folder/source.mp4" "$recording"; done
  [ "$(recordings | wc -l)" -eq 2 ] || fail "not both have come"
}

ABackupServerTakesOverUntilItFails() {
  start_server
  local first=$address second
  exec {said}< <(exec "$tools/ingest-server" "$folder/second")
  children+=($!)
  read -r second <&"$said" || fail "the second server did not start"
  start publish "test:W=1280,H=720,fr=15" "$first" --backup "$second/stream" --retry-max 1
  until_true recorded 1 100000 || fail "nothing was recorded"
  kill_server
  until_true grep -q address_changed "$log" || fail "it does not go on"
  until_true grep -q "publish: name" "$folder/second/error.log" ||
    fail "nothing comes to the second server"
  start_server
  kill_server KILL "$folder/second"
  until_true recorded 2 100000 || fail "it did not return to the first server"
  stop || true
  decodes_clean "$(newest)"
}

ACameraThatEndsIsALoss() {
  start_server
  local signal camera input status expected round=0
  for signal in KILL STOP; do
    round=$((round + 1))
    exec {said}< <(exec setsid "$tools/../tests/support/rtsp_camera.py")
    camera=$!
    read -r input <&"$said" || fail "the camera did not start"
    children+=("$camera")
    start publish "$input" "$address$round" --no-keep --input-option wait=2
    until_true recorded $round 100000 || fail "nothing was recorded"
    kill -$signal -- "-$camera"
    status=0
    wait "$publisher" || status=$?
    kill -KILL -- "-$camera" 2>/dev/null || true
    [ $status -eq 1 ] || fail "$signal: publish ended with $status"
    expected="has ended, as a live input should not"
    [ $signal = KILL ] || expected="nothing was received for 2 s"
    [ "$(grep -c "$expected" "$log")" -eq 1 ] || fail "$signal: it is not told: $(cat "$log")"
    grep -q "not everything was published: the input was lost" "$log" || fail "$signal: no reason"
    # Its times begin at 0, whatever the clock of the machine shows.
    ffprobe -v error -select_streams v -show_entries packet=pts_time -of csv=p=0 "$(newest)" |
      awk -F, 'NR == 1 && $1 > 0.5 { exit 1 }' || fail "its times begin late"
  done
}

# A camera that is killed, and one that freezes, which comes back with other pictures.
ACameraThatComesBackIsPublishedInOneSession() {
  start_server
  local signal camera input port
  exec {said}< <(exec setsid "$tools/../tests/support/rtsp_camera.py")
  camera=$!
  read -r input <&"$said" || fail "the camera did not start"
  children+=("$camera")
  port=${input#*127.0.0.1:}
  start publish "$input" "$address" --silence --input-option wait=2
  until_true recorded 1 1000000 || fail "nothing was recorded"
  local size rounds=0
  for size in 640x360 1280x720; do
    signal=KILL
    [ $size = 640x360 ] || signal=STOP
    rounds=$((rounds + 1))
    kill -$signal -- "-$camera"
    until_true told $rounds "a still picture is shown" || fail "$signal: no slate: $(cat "$log")"
    kill -KILL -- "-$camera" 2>/dev/null || true
    sleep 2
    exec {said}< <(exec setsid "$tools/../tests/support/rtsp_camera.py" --port "${port%/*}" --size $size)
    camera=$!
    read -r input <&"$said" || fail "the camera did not start again"
    children+=("$camera")
    until_true told $rounds "is back after" || fail "$signal: it did not come back: $(cat "$log")"
  done
  sleep 2
  local status=0
  stop || status=$?
  kill -KILL -- "-$camera" 2>/dev/null || true
  [ $status -eq 1 ] || fail "publish ended with $status"
  grep -q "not everything was published: the input was lost" "$log" || fail "no reason"
  [ "$(recordings | wc -l)" -eq 1 ] || fail "it took more than one session"
  # Pictures and sound never stop, but for what a busy machine makes of a second.
  local stream
  for stream in v a; do
    ffprobe -v error -select_streams $stream -show_entries packet=dts_time -of csv=p=0 "$(newest)" |
      awk -F, '$1 == "" { next } n++ && ($1 < last || $1 > last + 2) { exit 1 } { last = $1 }' ||
      fail "the times of $stream fall or jump"
  done
  ffprobe -v error -select_streams v -show_entries frame=width -of csv=p=0 "$(newest)" |
    grep -o '[0-9]\+' | uniq | tr '\n' ' ' | grep -q "^1280 640 1280 $" || fail "not all sizes have come"
}

TheKeyIsToldNowhere() {
  start_server
  local key=a-key-that-is-secret page
  NIMBO_KEY=$key "${host[@]}" publish test:W=1280,H=720 "${address%/*}/" --json --monitor 0 \
    </dev/null >"$folder/json" 2>"$log" &
  publisher=$!
  children+=("$publisher")
  until_true recorded 1 100000 || fail "nothing was recorded"
  page=$(sed -n 's/^monitor: //p' "$log")
  python3 -c '
import sys, urllib.request
for page in ("status.json?since=0", "metrics"):
    print(urllib.request.urlopen(sys.argv[1] + page).read().decode())' "$page" >"$folder/pages"
  tr "\0" " " <"/proc/$publisher/cmdline" >"$folder/words"
  stop || fail "publish ended with $?"
  grep -q "a-ke\.\.\." "$folder/json" && grep -q "a-ke\.\.\." "$folder/pages" ||
    fail "its stream is not named"
  local told
  told=$(grep -h -- "$key" "$folder/json" "$folder/pages" "$folder/words" "$log" |
    grep -v "url=\|disconnect to" || true)
  [ -z "$told" ] || fail "the key is told: $told"
  tail -n 1 "$folder/json" | python3 -c '
import json, sys
end = json.loads(sys.stdin.read())
assert (end["reason"], end["exit_code"]) == ("signal", 0), end
assert end["clients"][0]["video"] > 0, end' || fail "the last object is wrong"
}

AddressesThatChangeInAFileAreGoneTo() {
  start_server
  printf '%s\n' '# what is published' 'input = "test:W=640,H=360,fr=15"' 'max-lag = 1' \
    "url = ['${address%/*}/stays', '${address%/*}/goes']" >"$folder/camera.toml"
  start publish --config "$folder/camera.toml"
  until_true recorded_all 2 || fail "nothing was recorded: $(cat "$log")"
  sed -i 's/goes/comes/' "$folder/camera.toml"
  kill -USR1 "$publisher"
  until_true recorded_all 3 || fail "nothing comes to the new address: $(cat "$log")"
  # Everything else takes a restart, and a fault nothing but a line.
  sed -i 's/max-lag = 1/max-lag = 2/' "$folder/camera.toml"
  kill -USR1 "$publisher"
  until_true grep -q "nothing changes: .* has changed in more than its addresses" "$log" || fail "no line"
  stop || fail "publish ended with $?: $(tail -n 3 "$log")"
  [ "$(recordings | wc -l)" -eq 3 ] || fail "another session was made anew"
  for recording in $(recordings); do decodes_clean "$recording"; done
}

AFrozenServerIsLeftAndFoundAgain() {
  start_camera
  kill_server STOP
  sleep "${NIMBO_FROZEN_SECONDS:-10}"
  kill_server CONT
  until_true grep -q rtmp_reconnect_success "$log" || fail "no reconnection is told"
  until_true recorded 2 200000 || fail "nothing was recorded afterwards"
  stop || true
  begins_anew "$(newest)"
}

ASecureServerOfAPrivateAuthorityIsTrustedOnlyByName() {
  source_file "$folder/source.mp4" "${one_slice[@]}"
  start_server --tls
  publish "$folder/source.mp4" "$secure" && fail "the certificate was not checked"
  grep -q 'TLS: The certificate is NOT trusted' "$log" || fail "no explanation: $(cat "$log")"
  ! grep -q 'connect: app\|stream' "$folder/server/error.log" || fail "the stream name was sent"
  export RTMP_CA_FILE=$folder/server/authority.pem
  publish "$folder/source.mp4" "$secure" || fail "publish ended with $?"
  grep -q "connect: app" "$folder/server/error.log" || fail "the server tells nothing"
  decodes_clean "$(newest)"
  same_frames "$folder/source.mp4" "$(newest)"
  publish "$folder/source.mp4" "${secure}2" --fast --no-copy || fail "publish ended with $?"
  same_frames "$folder/source.mp4" "$(newest)"
}

AServerOfTls13AloneIsPublishedTo() {
  source_file "$folder/source.mp4" "${one_slice[@]}"
  start_server --tls13
  ! openssl s_client -tls1_2 -connect "localhost:$(cat "$folder/server/secure-port")" </dev/null \
    >/dev/null 2>&1 || fail "the server speaks TLS 1.2, too"
  export RTMP_CA_FILE=$folder/server/authority.pem
  publish "$folder/source.mp4" "$secure" || fail "publish ended with $?"
  decodes_clean "$(newest)"
  same_frames "$folder/source.mp4" "$(newest)"
}

AServerOnOpensslThatChangesItsKeysIsPublishedTo() {
  source_file "$folder/source.mp4" "${one_slice[@]}"
  start_server --tls13
  export RTMP_CA_FILE=$folder/server/authority.pem
  local port plain told options changes
  port=$(python3 -c 'import socket
s = socket.socket()
s.bind(("127.0.0.1", 0))
print(s.getsockname()[1])')
  plain=$(cat "$folder/server/port")
  for options in "" --no-copy; do
    exec {told}< <(exec "$(dirname "$0")/openssl-server" "$port" "$folder/server/server.pem" \
      "$folder/server/server.key" "$plain")
    children+=($!)
    read -r <&"$told" || fail "openssl does not listen"
    publish "$folder/source.mp4" "rtmps://localhost:$port/live/stream$options" $options ||
      fail "publish $options ended with $?"
    read -r changes <&"$told" || fail "the server has not ended"
    [ "${changes##* }" -ge 2 ] || fail "$changes"
    decodes_clean "$(newest)"
    same_frames "$folder/source.mp4" "$(newest)"
  done
}

# shell LINE...: its output, both streams.
shell() { printf '%s\n' "$@" | "${host[@]}" shell 2>&1 || true; }

TheShellStartsAndStopsAClient() {
  source_file "$folder/source.mp4" "${one_slice[@]}"
  start_server
  local said
  said=$(shell "call fwRtmpClientStart cam $address {shm-source:connect={pv:av,url={$folder/source.mp4}}+RingSink}" \
    "add cam rtmp-client:link=all,name=second,url=${address}2" "sleep 1" \
    "set cam/second status null" "set cam/second url ${address}3" "set cam/second status play" \
    "sleep 1" "remove cam/second" \
    "add cam rtmp-client:link=all,url=rtmp://127.0.0.1:1/live/nowhere" \
    "sleep 4" "get cam/EleRtmpClient rtmp_sts" "call fwRtmpClientStop cam" "call fwRtmpClientStop cam")
  # A target that came, went elsewhere and left, and one that could not come, cost the other nothing.
  same_frames "$folder/source.mp4" "$(recordings | grep stream-)"
  decodes_clean "$(recordings | grep stream2-)"
  decodes_clean "$(recordings | grep stream3-)"
  [[ $said == *"= 1"*"nothing was added to \"cam\""*true*"= 1"*"Did not find the rtmp client named cam"*"= 0"* ]] ||
    fail "the shell said: $said"
}

TheShellShowsAPipelineWithItsPorts() {
  local said
  said=$(shell "create app type=pipeline,serialize={shm-source:connect={pv:h264-0}+RingSink}+type=pipeline,serialize={shm-source:connect={pv:aac-0}+RingSink}+type=pipeline-rtmp-client-muxer-sink,name=out,link=all" \
    "objects" | tr -s ' ')
  local row
  for row in "app/avsync AvSync-ele-sync null in h264, in aac, out h264, out aac" \
    "app/EleRtmpClient EleRtmpClient-ele-rtmp-client-muxer-sink null in h264, in aac" \
    "app/h264 BridgeSource-bridge-source null out h264" \
    "app/aac BridgeSource-bridge-source null out aac"; do
    [[ $said == *"$row"* ]] || fail "\"$row\" is missing: $said"
  done
}

[ "$(type -t "$case")" = function ] && [[ $case == [A-Z]* ]] || fail "there is no case \"$case\""
"$case"
