#include "nimbo/base/object_list.h"

#include <algorithm>

namespace nimbo::base {

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

}  // namespace nimbo::base
