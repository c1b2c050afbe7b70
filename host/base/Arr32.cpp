#include "nimbo/base/arr32.h"

#include <algorithm>
#include <string>

#include "nimbo/base/names.h"

namespace nimbo::base {

Arr32::Arr32(const Arr32& other) : Arr32() { *this = other; }

Arr32& Arr32::operator=(const Arr32& other) {
  if (this == &other) return *this;
  Clear();
  for (const std::uint32_t value : other) Add(value);
  return *this;
}

Arr32::~Arr32() = default;

void Arr32::Add(std::uint32_t value) {
  if (_size == _capacity) {
    const unsigned capacity = 2 * _capacity;
    auto grown = std::make_unique<std::uint32_t[]>(capacity);
    std::copy(begin(), end(), grown.get());
    _heap = std::move(grown);
    _data = _heap.get();
    _capacity = capacity;
  }
  _data[_size++] = value;
}

void Arr32::Add(const char* text, char separator) {
  if (!text) return;
  std::string part;
  for (;; ++text) {
    if (*text && *text != separator) {
      part += *text;
      continue;
    }
    if (!part.empty()) Add(Hash(part.c_str()));
    part.clear();
    if (!*text) return;
  }
}

bool Arr32::ContainsAll(const Arr32& other) const noexcept {
  return std::all_of(other.begin(), other.end(), [this](std::uint32_t value) {
    return std::find(begin(), end(), value) != end();
  });
}

}  // namespace nimbo::base
