#pragma once

#include <functional>
#include <string>
#include <typeinfo>

#include "nimbo/base/api.h"
#include "nimbo/base/names.h"
#include "nimbo/base/object.h"
#include "nimbo/base/ostream.h"

namespace nimbo::base {

/// One property of a class: how to read and write one setting of its objects, typed or as text.
/// An empty functor means that the property does not offer that way.
class NIMBO_API IProperty : public object_keywords {
 public:
  IProperty() = default;
  ~IProperty() override;

  /// [control] Names the property and states its type. `size` is a label for display: the size in
  /// bytes that the type has on the 32-bit target. `description` may be null; it is not copied.
  void init(const char* name, const std::type_info& type, int size, const char* description);

  /// [any] Writes the current value into the buffer, an object of the property's type.
  std::function<bool(object&, void*)> get;
  /// [control] Takes a value of the property's type from the buffer and applies it.
  std::function<bool(object&, void*)> set;
  /// [any] Prints the value and a newline.
  std::function<void(ostream&, object&)> print;
  /// [any] Gives the value as text.
  std::function<bool(object&, std::string&)> getStr;
  /// [control] Applies a value given as text.
  std::function<bool(object&, const char*)> setStr;

 protected:
  const std::type_info* _type = nullptr;
  int _size = 0;
  const char* _description = nullptr;
  bool _shown = false;       ///< offered in listings
  bool _persistent = false;  ///< part of the whole-object form

 private:
  friend class nimbo::Framework;
};

}  // namespace nimbo::base
