#pragma once

#include "nimbo/base/object_list.h"

namespace nimbo::base {

/// What the streaming layer knows about objects and this layer, which it stands on, does not. The
/// streaming layer sets it while the library is loaded, before the first object is made.
struct ObjectHooks {
  /// [control] Initialises a fresh object that has its class and name: Object::Initialize of a
  /// streaming object, which tells in one console line why it fails; true for every other object.
  bool (*initialize)(object& instance, const char* type, const char* name, const char* cfgs,
                     object* owner) = nullptr;
  /// [any] The global list, which every object leaves when it is released or destroyed. It is never
  /// destroyed, because objects may die while the process ends.
  ObjectListSafe& (*list)() = nullptr;
};

/// [loading]
NIMBO_API void SetObjectHooks(const ObjectHooks& hooks);
/// [any]
NIMBO_API const ObjectHooks& GetObjectHooks();

}  // namespace nimbo::base
