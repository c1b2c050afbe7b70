#include "host/base/Pin.h"

#include "host/base/Framework.h"
#include "host/base/ObjectHooks.h"
#include "sync/Atomic.h"
#include "sync/Mutex.h"

namespace nimbo::base {

namespace {

/// Orders the last unpinning of any object against whoever waits for it. Pins live for a moment
/// only, so that one lock serves all objects. Never destroyed: see ObjectHooks::list.
struct Unpinning {
  sync::Mutex mutex;
  sync::Condition changed;
};
Unpinning& UnpinningOf() {
  static auto* const unpinning = new Unpinning;
  return *unpinning;
}

}  // namespace

Pin::Pin(object& instance) : _object(&instance) {
  __atomic_fetch_add(&Framework::Pins(*_object), 1, __ATOMIC_RELAXED);
}

Pin::~Pin() {
  if (!_object) return;
  Unpinning& unpinning = UnpinningOf();
  // The count falls under the lock: whoever waits cannot see the last pin gone, and destroy the
  // object, while this thread still touches it.
  const sync::Lock lock(unpinning.mutex);
  if (__atomic_sub_fetch(&Framework::Pins(*_object), 1, __ATOMIC_ACQ_REL) == 0) {
    unpinning.changed.NotifyAll();
  }
}

std::vector<Pin> Pin::All(ObjectListSafe& list) {
  const std::lock_guard<std::mutex> lock(Framework::Mutex(list));
  const auto& objects = Framework::Objects(list);
  std::vector<Pin> pins;
  pins.reserve(objects.size());
  for (object* instance : objects) pins.emplace_back(*instance);
  return pins;
}

void Pin::Retire(object& instance) {
  if (const auto list = GetObjectHooks().list) list().Remove(instance);
  Unpinning& unpinning = UnpinningOf();
  const sync::Lock lock(unpinning.mutex);
  while (sync::Load(Framework::Pins(instance)) != 0) unpinning.changed.Wait(unpinning.mutex);
}

}  // namespace nimbo::base
