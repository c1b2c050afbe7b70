#!/usr/bin/env bash
# Builds the Debian packages and tries them out.
#
#   packaging/test-packages.sh amd64   installs them into a Debian of its own, publishes from there
#                                      as the service would, loads the example plug-in, removes them
#   packaging/test-packages.sh armhf   looks into those for 32-bit ARM and publishes with qemu
#
# What is published goes to a private server on loopback. The Debian is kept in build/package-root
# until the packages need others. amd64 needs root and ends with 77 where that is missing.
set -euo pipefail
cd "$(dirname "$0")/.."
architecture=${1:-}
case $architecture in
  amd64) preset=package count=5 ;;
  armhf) preset=package-armhf count=4 ;;
  -h | --help) sed -n '2,/^set /{/^set /!s/^# \{0,1\}//p}' "$0"; exit 0 ;;
  *) sed -n '2,/^set /{/^set /!s/^# \{0,1\}//p}' "$0" >&2; exit 2 ;;
esac

fail() { printf 'test-packages: %s\n' "$1" >&2; exit 1; }
skip() { printf 'test-packages: skipped, %s\n' "$1"; exit 77; }
step() { printf '== %s\n' "$1"; }

if [ "$architecture" = amd64 ] && [ -z "${PACKAGES_NAMESPACE:-}" ]; then
  [ "$(id -u)" -eq 0 ] || skip "it needs root"
  unshare --mount true 2>/dev/null || skip "it may not mount"
  # What is mounted ends with this process.
  PACKAGES_NAMESPACE=1 exec unshare --mount "$0" "$@"
fi

built=$PWD/build/$preset root=$PWD/build/package-root sysroot=$PWD/build/armhf-sysroot
folder=$(mktemp -d)
server=''
finish() {
  local status=$?
  if [ -n "$server" ]; then
    kill "$server" 2>/dev/null || true
    wait "$server" || true
  fi
  rm -rf "$folder"
  exit $status
}
trap finish EXIT
trap 'exit 1' INT TERM

# quiet COMMAND...: its output is shown only when it fails.
quiet() { "$@" >"$folder/said" 2>&1 || { tail -n 20 "$folder/said" >&2; return 1; }; }

build() {
  step "Building the packages for $architecture"
  [ "$architecture" = amd64 ] || quiet tools/armhf-sysroot --av "$sysroot" || fail "no armhf sysroot"
  rm -f "$built"/*.deb
  quiet cmake --preset $preset || fail "configuring failed"
  quiet cmake --build --preset $preset || fail "building failed"
  packages=("$built"/*.deb)
  [ ${#packages[@]} -eq $count ] || fail "there are ${#packages[@]} packages"
}

check_policy() {
  step "Checking them against Debian's policy"
  command -v lintian >/dev/null || fail "lintian is not installed (tools/install-deps)"
  quiet lintian --allow-root --fail-on error --display-level '>=error' "${packages[@]}" ||
    fail "lintian finds errors in the packages"
}

start_server() {
  exec {said}< <(exec tools/ingest-server "$folder/server")
  server=$!
  read -r address <&"$said" || fail "the server did not start"
  address=$address/stream
}
# arrived: both streams are there and can be decoded. (A picture of another size than the usual one
# makes the session anew, and with it the recording.)
arrived() {
  local recording streams complaints
  recording=$(ls -tr "$folder"/server/recordings/*.flv | tail -n 1)
  [ -s "$recording" ] || fail "nothing was recorded"
  streams=$(ffprobe -v error -show_entries stream=codec_name -of csv=p=0 "$recording" | sort | xargs)
  [ "$streams" = "aac h264" ] || fail "what arrived is: $streams"
  complaints=$(ffmpeg -nostdin -v error -i "$recording" -f null - 2>&1)
  [ -z "$complaints" ] || fail "the decoder says: $complaints"
}

# The packages' own dependencies, by name.
dependencies() {
  local package
  for package in "${packages[@]}"; do dpkg-deb -f "$package" Depends; done | tr ',' '\n' |
    sed 's/ *(.*//; s/ //g' | grep -vE '^(pluginrtmp|nimbo-.*)?$' | sort -u
}

make_root() {
  local needed source
  needed=$(dependencies | xargs)
  [ "$(cat "$root.stamp" 2>/dev/null || true)" != "$needed" ] || return 0
  command -v mmdebstrap >/dev/null || skip "mmdebstrap is not installed (tools/install-deps)"
  step "Making a Debian with what they depend on"
  source=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Codename: bookworm' |
    sed -n 1p)
  rm -rf "$root" "$root.stamp"
  quiet mmdebstrap --variant=minbase --include="${needed// /,}" bookworm "$root" \
    "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $source bookworm main" ||
    fail "it could not be made"
  echo "$needed" >"$root.stamp"
}

inside() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"; }
# What packages may leave; the rest is what dpkg and the loader keep for themselves.
files() {
  (cd "$root" && find . \( -path ./proc -o -path ./dev -o -path ./var/lib/dpkg -o -path ./var/log \
    -o -path ./var/cache/ldconfig \) -prune -o -print | sort)
}

try_service() {
  step "Publishing as the service would"
  local unit=$root/usr/lib/systemd/system/nimbo-publish@.service command
  if command -v systemd-analyze >/dev/null; then
    # This machine has no such program.
    sed 's,/usr/bin/nimbo-host,/bin/true,' "$unit" >"$folder/nimbo-publish@camera.service"
    quiet systemd-analyze verify --man=no "$folder/nimbo-publish@camera.service" &&
      [ ! -s "$folder/said" ] || fail "systemd does not take the unit: $(cat "$folder/said")"
    systemd-analyze security --offline=yes --threshold=25 \
      "$folder/nimbo-publish@camera.service" >"$folder/said" 2>&1 ||
      fail "the unit may do more than it needs: $(tail -n 1 "$folder/said")"
  fi
  command=$(sed -n 's/^ExecStart=//p' "$unit")
  start_server
  # The variables in the command are for this shell, as they are for systemd.
  quiet inside URLS="$address" OPTIONS="--duration 3" bash -c \
    "urls=\$URLS options=\$OPTIONS; . /etc/nimbo/camera.conf; URLS=\$urls OPTIONS=\$options; exec $command" ||
    fail "publishing failed"
  arrived
}

try_example() {
  step "Building and loading the example plug-in"
  cp -r "$root/usr/share/doc/nimbo-dev/examples" "$folder/example"
  quiet cmake -S "$folder/example" -B "$folder/example/build" -DCMAKE_PREFIX_PATH="$root/usr" \
    -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror" || fail "the package \"nimbo\" is not found"
  quiet cmake --build "$folder/example/build" || fail "the example does not build"
  cp "$folder/example/build/libhello.so" "$root/tmp"
  local said
  said=$(echo "hello name=you" | inside nimbo-host --plugin /tmp/libhello.so shell) ||
    fail "the example does not run"
  rm "$root/tmp/libhello.so"
  [ "$said" = "Hello, you" ] || fail "the example said: $said"
}

try_completion() {
  local completed
  completed=$(inside bash -c '. /usr/share/bash-completion/completions/nimbo-host
    COMP_WORDS=(nimbo-host pub) COMP_CWORD=1; _nimbo_host; echo "${COMPREPLY[@]}"')
  [ "$completed" = publish ] || fail "\"pub\" is completed to \"$completed\""
  grep -q publish "$root/usr/share/zsh/vendor-completions/_nimbo-host" \
    "$root/usr/share/fish/vendor_completions.d/nimbo-host.fish" ||
    fail "zsh or fish complete nothing"
  zcat "$root/usr/share/man/man1/nimbo-host.1.gz" | grep -q '^\.SS "nimbo\\-host publish ' ||
    fail "the manual says nothing of publishing"
}

try_amd64() {
  make_root
  mount -t proc proc "$root/proc"
  files >"$folder/before"
  step "Installing"
  mkdir "$root/tmp/packages"
  cp "${packages[@]}" "$root/tmp/packages"
  # What fails from here on leaves a Debian that is no longer clean.
  mv "$root.stamp" "$folder/stamp"
  quiet inside sh -c 'dpkg -i /tmp/packages/*.deb' || fail "dpkg does not install them"
  rm -r "$root/tmp/packages"
  try_service
  try_example
  try_completion
  step "Removing"
  quiet inside dpkg --purge nimbo-dev nimbo-host-monitor nimbo-host-av nimbo-host pluginrtmp || fail "dpkg does not remove them"
  files | diff "$folder/before" - >"$folder/left" || fail "they leave: $(grep '^[<>]' "$folder/left")"
  mv "$folder/stamp" "$root.stamp"
}

try_armhf() {
  local package file
  for package in "${packages[@]}"; do
    case $(basename "$package") in
      nimbo-dev_*) [ "$(dpkg-deb -f "$package" Architecture)" = all ] ;;
      *) [ "$(dpkg-deb -f "$package" Architecture)" = armhf ] &&
           dpkg-deb -f "$package" Depends | grep -q 'libc6 (>= ' ;;
    esac || fail "$(basename "$package") has other fields: $(dpkg-deb -f "$package")"
    dpkg-deb -x "$package" "$folder/device"
  done
  dpkg-deb -f "$built"/pluginrtmp_*.deb Depends | grep librtmp1 | grep -q libgnutls30 ||
    fail "the plug-in's libraries are not among its dependencies"
  for file in "$folder"/device/usr/bin/* "$folder"/device/usr/lib/arm-linux-gnueabihf/nimbo/*; do
    readelf -A "$file" | grep -q 'Tag_ABI_VFP_args: VFP registers' ||
      fail "$(basename "$file") is not for ARM with hard float"
  done
  step "Publishing with qemu"
  start_server
  quiet qemu-arm-static -L "$sysroot" "$folder/device/usr/bin/nimbo-host" publish \
    test:W=160,H=120,fr=5 "$address" --duration 4 || fail "publishing failed"
  arrived
}

build
check_policy
"try_$architecture"
step "Passed"
