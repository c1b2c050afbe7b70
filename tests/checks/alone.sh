#!/usr/bin/env bash
# Builds the plug-in as a device does: from copies of its own rooms and of the contract, with nothing
# else of the tree in reach. WORK stays, so that a compiler cache helps the next time.
#   alone.sh WORK NIMBO-HOST [ARMHF-SYSROOT]
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
work=$1 host=$2 sysroot=${3:-}
fail() { printf 'alone: %s\n' "$1" >&2; exit 1; }

rm -rf "$work"
mkdir -p "$work/own" "$work/contract"
cp -r "$root"/{plugin,common,log,sync} "$work/own"
cp -r "$root"/{include,base} "$work/contract"
if grep -rnE 'std::atomic|<atomic>' "$work/contract"; then fail "the contract has plain types alone"; fi

# build NAME [CMAKE-ARGUMENT...]: configures, builds, installs and looks at the library.
build() {
  local name=$1 library=$work/$1/installed/lib/libpluginrtmp.so
  shift
  {
    cmake -G Ninja -S "$work/own/plugin" -B "$work/$name" -DNIMBO_CONTRACT="$work/contract" \
      -DCMAKE_CXX_FLAGS=-Werror "$@" &&
      cmake --build "$work/$name" &&
      cmake --install "$work/$name" --prefix "$work/$name/installed"
  } >"$work/$name.log" 2>&1 || { grep -E 'rror' -A 3 "$work/$name.log" >&2; fail "$name failed"; }
  "$root/tools/check-exports" "$library" || fail "$name"
}

# compiles TEXT: whether a plug-in with this function body compiles against the contract.
compiles() {
  c++ -std=c++17 -fsyntax-only -I"$work/contract/include" -I"$work/contract" -x c++ - \
    >"$work/body.log" 2>&1 <<END
#include "base/reflect/Class.h"
#include "base/reflect/TClass.h"
#include "nimbo/stream/application.h"
#include "nimbo/stream/pipeline.h"
#include "nimbo/stream/factory.h"
using namespace nimbo::base;
using namespace nimbo::stream;
void Body(IElement& element, Pipeline& pipeline, Application& application) {
  $1;
  static_cast<void>(element), static_cast<void>(pipeline), static_cast<void>(application);
}
END
}

if cmake -S "$work/own/plugin" -B "$work/none" >"$work/none.log" 2>&1; then fail "built without a contract"; fi
grep -q -- -DNIMBO_CONTRACT=DIR "$work/none.log" || fail "it does not say that NIMBO_CONTRACT is missing"

compiles 'Factory::Globle().Find<Application>(element.Name().c_str(), true)' ||
  { cat "$work/body.log" >&2; fail "the contract does not compile by itself"; }
for name in 'element.HostState()' 'pipeline.HostState()' 'application.HostState()' \
  'IElement::State* state = nullptr' 'ClassRegistry* classes = nullptr' 'IClass::Globle().Classes()' \
  'Pin pin(element)' 'StatusSteps::Raise({}, IStatus::play)' 'nimbo::log::Line(element.Name())' \
  'nimbo::sync::Mutex mutex' 'nimbo::Framework::State(element)' 'IClass::FailedCheck("", 1, "", "")' \
  'AttrSet("").Entries()' 'AttrSet("").Valid()' 'element.Class()' 'element.Owner()' \
  'element.GetStatus()' 'pipeline.GetSerialize()' 'application.SetSerialize("")' \
  'IClass::Find("", true)->Properties()' 'IClass::Find("", true)->Description()' \
  'TProperty().Type()' 'TProperty().Shown()'; do
  if compiles "$name"; then fail "a plug-in that says \"$name\" compiles, which no device has"; fi
done

for type in Debug Release RelWithDebInfo MinSizeRel; do build "$type" -DCMAKE_BUILD_TYPE=$type; done
if [ -n "$sysroot" ]; then
  build armhf -DCMAKE_BUILD_TYPE=Release -DARMHF_SYSROOT="$sysroot" \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/armhf-toolchain.cmake"
  "$root/tools/framework-symbols" "$work/armhf/installed/lib/libpluginrtmp.so" --check
fi

# A framework that was built elsewhere cuts another length.
prefix=/home/maker/camera/
build elsewhere -DCMAKE_BUILD_TYPE= -DNIMBO_SOURCE_ROOT=$prefix
echo "extern \"C\" { extern int __root_path_offset; int __root_path_offset = ${#prefix}; }" |
  c++ -shared -fPIC -x c++ - -o "$work/offset.so"
said=$(LD_PRELOAD=$work/offset.so "$host" --plugin "$work/elsewhere/libpluginrtmp.so" shell --stop \
  <<<'call fwRtmpClientStop nobody x x' 2>&1 || true)
grep -qP '^(\e\[\d+m)*plugin/rtmp/_test.cpp/43/fwRtmpClientStop:\t!client' <<<"$said" ||
  fail "with __root_path_offset ${#prefix} the path is not cut right: $said"
