#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace nimbo::test {

using Bytes = std::vector<unsigned char>;

/// Appends `size` bytes of `value`, the most significant one first.
inline void AppendBig(Bytes& out, std::uint64_t value, int size) {
  for (int i = size - 1; i >= 0; --i) out.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

/// Reads `size` bytes, the most significant one first.
inline std::uint32_t ReadBig(const unsigned char* bytes, int size) {
  std::uint32_t value = 0;
  for (int i = 0; i < size; ++i) value = (value << 8) | bytes[i];
  return value;
}

inline void Append(Bytes& out, const Bytes& tail) {
  out.insert(out.end(), tail.begin(), tail.end());
}

}  // namespace nimbo::test
