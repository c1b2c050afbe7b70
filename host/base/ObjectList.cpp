#include "nimbo/base/object_list.h"

#include <algorithm>
#include <condition_variable>

#include "host/base/ObjectHooks.h"
#include "host/base/Pin.h"

namespace nimbo::base {
namespace {

ObjectHooks hooks;

/// Orders the last unpinning of any object against whoever waits for it. Pins live for a moment
/// only, so that one lock serves all objects. Never destroyed: see ObjectHooks::list.
struct Unpinning {
  std::mutex mutex;
  std::condition_variable changed;
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
  const std::lock_guard<std::mutex> lock(_mutex);
  if (std::find(_objects.begin(), _objects.end(), &instance) == _objects.end()) {
    _objects.push_back(&instance);
  }
}

void ObjectListSafe::Remove(object& instance) {
  const std::lock_guard<std::mutex> lock(_mutex);
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
  const std::lock_guard<std::mutex> lock(unpinning.mutex);
  if (_object->_pins.fetch_sub(1, std::memory_order_acq_rel) == 1) unpinning.changed.notify_all();
}

std::vector<Pin> Pin::All(ObjectListSafe& list) {
  const std::lock_guard<std::mutex> lock(list._mutex);
  std::vector<Pin> pins;
  pins.reserve(list._objects.size());
  for (object* instance : list._objects) pins.emplace_back(*instance);
  return pins;
}

void Pin::Retire(object& instance) {
  if (hooks.list) hooks.list().Remove(instance);
  Unpinning& unpinning = UnpinningOf();
  std::unique_lock<std::mutex> lock(unpinning.mutex);
  unpinning.changed.wait(lock, [&instance] { return instance._pins.load() == 0; });
}

}  // namespace nimbo::base
