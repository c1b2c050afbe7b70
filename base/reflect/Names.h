#pragma once

#include "nimbo/base/names.h"

namespace nimbo::base {

inline std::uint32_t Hash(const char* text) noexcept {
  constexpr std::uint32_t OffsetBasis = 0x811C9DC5;
  constexpr std::uint32_t Prime = 0x01000193;
  if (!text) return 0;
  std::uint32_t hash = OffsetBasis;
  for (; *text; ++text) {
    auto byte = static_cast<unsigned char>(*text);
    if (byte >= 'A' && byte <= 'Z') byte = static_cast<unsigned char>(byte + 0x20);
    hash = (hash ^ byte) * Prime;
  }
  return hash;
}

inline bool object_keywords::Name(const char* name) {
  if (!name) return true;
  _name = name;
  _id = Hash(name);
  _keywords.Clear();
  _keywords.Add(name, '-');
  return true;
}

}  // namespace nimbo::base
