#pragma once

#include <cstdint>
#include <memory>

#include "nimbo/base/api.h"

namespace nimbo::base {

/// A list of 32-bit name hashes. The first eight entries need no allocation, which covers the
/// keywords of every class name in use.
class NIMBO_API Arr32 {
 public:
  static constexpr unsigned InlineCapacity = 8;

  Arr32() noexcept : _data(_inline) {}
  Arr32(const Arr32& other);
  Arr32& operator=(const Arr32& other);
  ~Arr32();

  /// [any] Empties the list; the memory is kept.
  void Clear() noexcept { _size = 0; }
  /// [any] Appends one value.
  void Add(std::uint32_t value);
  /// [any] Splits `text` at every `separator` and appends the hash of each non-empty part.
  /// A null text appends nothing.
  void Add(const char* text, char separator);

  unsigned Size() const noexcept { return _size; }
  const std::uint32_t* begin() const noexcept { return _data; }
  const std::uint32_t* end() const noexcept { return _data + _size; }
  /// True when every value of `other` stands in this list; an empty `other` is contained.
  bool ContainsAll(const Arr32& other) const noexcept;

 private:
  std::uint32_t _inline[InlineCapacity] = {};
  std::unique_ptr<std::uint32_t[]> _heap;
  std::uint32_t* _data;  ///< _inline, or what _heap owns
  unsigned _size = 0;
  unsigned _capacity = InlineCapacity;
};

}  // namespace nimbo::base
