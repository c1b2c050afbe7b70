#pragma once

#include "base/reflect/FailedCheck.h"
#include "nimbo/base/class.h"
#include "nimbo/base/object_list.h"

namespace nimbo::base {

template <class T>
T* object::AsType(object* instance) {
  return instance ? dynamic_cast<T*>(instance) : nullptr;
}

template <class T>
T* ObjectList::Find(const char* name, bool byIdentifier) {
  if (byIdentifier) {
    const std::uint32_t id = Hash(name);
    for (object* candidate : _objects) {
      if (candidate->ID() == id) return object::AsType<T>(candidate);
    }
    return nullptr;
  }
  Arr32 keywords;
  keywords.Add(name, '-');
  for (object* candidate : _objects) {
    if (!candidate->Keywords().ContainsAll(keywords)) continue;
    if (T* found = object::AsType<T>(candidate)) return found;
  }
  return nullptr;
}

template <class T>
T* ObjectListSafe::Find(const char* name, bool byIdentifier) {
  const std::lock_guard<std::mutex> lock(_mutex);
  return ObjectList::Find<T>(name, byIdentifier);
}

template <class T>
T* IClass::New(AttrSet& attrs) {
  // The line numbers are part of the printed text, which tools of our users look for.
  constexpr int NoType = 221;
  constexpr int NoClass = 225;
  const char* type = attrs.Get("type");
  if (!type) {
    FailedCheck(__FILE__, NoType, "New", "!type");
    return nullptr;
  }
  IClass* cl = IClass::Find(type, false);
  if (!cl) {
    FailedCheck(__FILE__, NoClass, "New", "!cl");
    return nullptr;
  }
  if (const char* name = attrs.Get("name")) {
    if (T* existing = object::AsType<T>(cl->FindBeforeNew(name))) return existing;
  }
  if (!cl->_creator || !cl->_signature || *cl->_signature != typeid(void (*)())) return nullptr;
  object* created = cl->_creator(nullptr);
  if (created) created = cl->initObject(created, attrs);
  T* result = object::AsType<T>(created);
  if (created && !result) created->Release();
  return result;
}

}  // namespace nimbo::base
