#pragma once

#include <algorithm>
#include <cstddef>

namespace nimbo::plugin {

/// A view over memory that its caller owns.
struct Bytes {
  const unsigned char* data = nullptr;
  std::size_t size = 0;
};

/// Writes big-endian fields one behind the other into memory that the caller has made large enough.
class ByteWriter {
 public:
  explicit ByteWriter(unsigned char* out) : _start(out), _next(out) {}

  void u8(unsigned value) { *_next++ = static_cast<unsigned char>(value); }
  void u16(std::size_t value) {
    u8(static_cast<unsigned>(value >> 8));
    u8(static_cast<unsigned>(value));
  }
  void u24(std::size_t value) {
    u8(static_cast<unsigned>(value >> 16));
    u16(value);
  }
  void u32(std::size_t value) {
    u16(value >> 16);
    u16(value);
  }
  void bytes(Bytes from) { _next = std::copy_n(from.data, from.size, _next); }
  std::size_t Written() const { return static_cast<std::size_t>(_next - _start); }

 private:
  unsigned char* _start;
  unsigned char* _next;
};

}  // namespace nimbo::plugin
