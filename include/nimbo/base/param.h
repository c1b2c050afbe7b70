#pragma once

#include <functional>
#include <string>
#include <typeinfo>

#include "nimbo/base/api.h"

namespace nimbo::base {

/// Named parameters of any type: what a media description tells, and the settings of an object.
class NIMBO_API IParam {
 public:
  /// Decides whether a parameter of the stored type may be read; null stands for "no type".
  using Accept = std::function<bool(const std::type_info*)>;

  virtual ~IParam();

  /// [any] Reads the parameter `name` into `value`, which must be an object of the type
  /// `requested`. False, with `value` untouched, when there is no such parameter, when `accept`
  /// refuses the type that it is stored with, or when that cannot be converted to the type
  /// requested (integers of every width convert to long long; every other type only to itself).
  virtual bool GetWithType(const char* name, void* value, const std::type_info& requested,
                           const Accept& accept) = 0;
  /// [control] Sets the parameter `key` from text. False when there is none or the value is
  /// refused.
  virtual bool SetStr(const char* key, const char* value) = 0;
  /// [any] Gives the parameter `key` as text. False when there is none or it cannot be read.
  virtual bool GetStr(const char* key, std::string& value) = 0;

  bool Set(const char* key, const char* value) { return SetStr(key, value); }
  /// [any] Reads a parameter that is stored as exactly `T`.
  template <class T>
  bool Get(const char* name, T& value);
  /// [any] Reads an integer parameter of any width and keeps the low bits that fit `T`. A stored
  /// bool, signed char, floating value or text is refused. See base/reflect/Class.h.
  template <class T>
  bool GetIntT(const char* name, T& value);
};

}  // namespace nimbo::base

#include "base/reflect/Param.h"
