#pragma once

#include <memory>

#include "nimbo/base/object.h"

namespace nimbo::test {

struct Releaser {
  void operator()(base::object* object) const { object->Release(); }
};

/// An object of the framework, released at the end of the scope.
template <class T>
using Owned = std::unique_ptr<T, Releaser>;

}  // namespace nimbo::test
