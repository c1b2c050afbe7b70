#include "nimbo/base/object_list.h"

#include <algorithm>

#include "host/base/ObjectHooks.h"
#include "host/base/Pin.h"

namespace nimbo::base {
namespace {

ObjectHooks hooks;

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

void SetObjectHooks(const ObjectHooks& with) { hooks = with; }
const ObjectHooks& GetObjectHooks() { return hooks; }

ObjectList::~ObjectList() = default;

void ObjectListSafe::Add(object& instance) {
  const sync::Lock lock(_mutex);
  if (std::find(_objects.begin(), _objects.end(), &instance) == _objects.end()) {
    _objects.push_back(&instance);
  }
}

void ObjectListSafe::Remove(object& instance) {
  const sync::Lock lock(_mutex);
  _objects.erase(std::remove(_objects.begin(), _objects.end(), &instance), _objects.end());
}

Pin::Pin(object& instance) : _object(&instance) {
  _object->_pins.fetch_add(1, std::memory_order_relaxed);
}

Pin::~Pin() {
  if (!_object) return;
  Unpinning& unpinning = UnpinningOf();
  // The count falls under the lock: whoever waits cannot see the last pin gone, and destroy the
  // object, while this thread still touches it.
  const sync::Lock lock(unpinning.mutex);
  if (_object->_pins.fetch_sub(1, std::memory_order_acq_rel) == 1) unpinning.changed.NotifyAll();
}

std::vector<Pin> Pin::All(ObjectListSafe& list) {
  const sync::Lock lock(list._mutex);
  std::vector<Pin> pins;
  pins.reserve(list._objects.size());
  for (object* instance : list._objects) pins.emplace_back(*instance);
  return pins;
}

void Pin::Retire(object& instance) {
  if (hooks.list) hooks.list().Remove(instance);
  Unpinning& unpinning = UnpinningOf();
  const sync::Lock lock(unpinning.mutex);
  while (instance._pins.load() != 0) unpinning.changed.Wait(unpinning.mutex);
}

}  // namespace nimbo::base
