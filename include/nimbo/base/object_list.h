#pragma once

#include <mutex>
#include <vector>

#include "nimbo/base/api.h"
#include "nimbo/base/object.h"

namespace nimbo::base {

/// A list of objects in the order in which they were added. It owns none of them.
class NIMBO_API ObjectList {
 public:
  virtual ~ObjectList();
  /// The object called `name`, as a `T`. By identifier: the first object with that identifier, null
  /// when it is no `T`. Else by keywords: the first `T` that has all the keywords of `name`.
  /// See base/reflect/Class.h.
  template <class T>
  T* Find(const char* name, bool byIdentifier);

 protected:
  std::vector<object*> _objects;
};

/// The same list behind a mutex, which is held only while the list is walked. [any]
class NIMBO_API ObjectListSafe : public ObjectList {
 public:
  template <class T>
  T* Find(const char* name, bool byIdentifier);

  /// Adding an object that is in the list does nothing.
  void Add(object& instance);
  /// Removing an object that is not in the list does nothing.
  void Remove(object& instance);

 protected:
  friend class nimbo::Framework;
  std::mutex _mutex;  ///< guards `_objects`
};

}  // namespace nimbo::base
