#pragma once

#include <typeinfo>

#include "base/reflect/TProperty.h"

namespace nimbo::plugin {

/// A new read-only property that gives what `member` returns, typed and as text.
template <class T, class R>
base::TProperty* Getter(const char* name, R (T::*member)()) {
  auto* property = new base::TProperty;
  property->init(name, typeid(R), base::PropertyTypeSize<R>, nullptr);
  property->initGet(member);
  property->initGetStr(member);
  return property;
}

}  // namespace nimbo::plugin
