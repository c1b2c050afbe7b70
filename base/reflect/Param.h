#pragma once

#include "nimbo/base/param.h"

namespace nimbo::base {

template <class T>
bool IParam::Get(const char* name, T& value) {
  return GetWithType(name, &value, typeid(T),
                     [](const std::type_info* stored) { return stored && *stored == typeid(T); });
}

/// True for the types that GetIntT reads.
inline bool IsIntegerParameter(const std::type_info* stored) {
  if (!stored) return false;
  for (const std::type_info* type :
       {&typeid(int), &typeid(unsigned int), &typeid(long long), &typeid(unsigned long long),
        &typeid(long), &typeid(unsigned long), &typeid(short), &typeid(unsigned short),
        &typeid(char), &typeid(unsigned char)}) {
    if (*stored == *type) return true;
  }
  return false;
}

template <class T>
bool IParam::GetIntT(const char* name, T& value) {
  static_assert(sizeof(T) == 4, "read as int or unsigned int");
  long long wide = 0;
  if (!GetWithType(name, &wide, typeid(long long), IsIntegerParameter)) return false;
  value = static_cast<T>(wide);
  return true;
}

}  // namespace nimbo::base
