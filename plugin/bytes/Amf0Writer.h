#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "plugin/bytes/Amf0.h"

namespace nimbo::plugin {

/// Puts values in AMF0 (Action Message Format 0, 2) one behind the other.
class Amf0Writer {
 public:
  void Text(std::string_view text) {
    Type(Amf0Type::String);
    Name(text);
  }
  void Number(double number) {
    Type(Amf0Type::Number);
    std::uint64_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    Unsigned(bits, sizeof bits);
  }
  /// An array of properties, of which so many follow, each a name and a value, and then the end.
  void ArrayBegins(std::uint32_t count) {
    Type(Amf0Type::EcmaArray);
    Unsigned(count, sizeof count);
  }
  void Name(std::string_view name) {
    Unsigned(name.size(), 2);
    _bytes.insert(_bytes.end(), name.begin(), name.end());
  }
  void ArrayEnds() {
    Name({});
    Type(Amf0Type::ObjectEnd);
  }

  const std::vector<unsigned char>& Written() const { return _bytes; }

 private:
  void Type(Amf0Type type) { _bytes.push_back(static_cast<unsigned char>(type)); }
  void Unsigned(std::uint64_t value, std::size_t size) {
    while (size-- > 0) _bytes.push_back(static_cast<unsigned char>(value >> 8 * size));
  }

  std::vector<unsigned char> _bytes;
};

}  // namespace nimbo::plugin
