#include "nimbo/base/ostream.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "nimbo/base/names.h"

namespace nimbo::base {
namespace {

/// Room for every number's text: the longest is a double of 17 digits with sign, point and
/// exponent.
constexpr std::size_t NumberRoom = 32;
constexpr int Hexadecimal = 16;

template <class V, class... Form>
ostream& WriteNumber(ostream& out, V value, Form... form) {
  std::array<char, NumberRoom> text;
  // Independent of the locale, unlike printf.
  const auto result = std::to_chars(text.data(), text.data() + text.size(), value, form...);
  out.Write(text.data(), static_cast<std::size_t>(result.ptr - text.data()));
  return out;
}

constexpr const char* TrueWords[] = {"true", "yes", "on", "1"};
constexpr const char* FalseWords[] = {"false", "no", "off", "0"};

}  // namespace

ostream::~ostream() = default;

ostream& ostream::operator<<(const char* text) {
  if (!text) text = "(null)";
  Write(text, std::strlen(text));
  return *this;
}

ostream& ostream::operator<<(const std::string& text) {
  Write(text.data(), text.size());
  return *this;
}

ostream& ostream::operator<<(char character) {
  Write(&character, 1);
  return *this;
}

ostream& ostream::operator<<(bool value) { return *this << (value ? "true" : "false"); }
ostream& ostream::operator<<(int value) { return WriteNumber(*this, value); }
ostream& ostream::operator<<(unsigned int value) { return WriteNumber(*this, value); }
ostream& ostream::operator<<(long value) { return WriteNumber(*this, value); }
ostream& ostream::operator<<(unsigned long value) { return WriteNumber(*this, value); }
ostream& ostream::operator<<(long long value) { return WriteNumber(*this, value); }
ostream& ostream::operator<<(unsigned long long value) { return WriteNumber(*this, value); }
ostream& ostream::operator<<(double value) { return WriteNumber(*this, value); }

ostream& ostream::operator<<(const void* pointer) {
  std::string text;
  ConvertToImpl(pointer, text);
  return *this << text;
}

void ostream_string::Write(const char* text, std::size_t size) { _text.append(text, size); }

bool ConvertToImpl(const void* pointer, std::string& text) {
  text = "0x";
  ostream_string out(text);
  WriteNumber(out, reinterpret_cast<std::uintptr_t>(pointer), Hexadecimal);
  return true;
}

bool ConvertToImpl(const char* text, bool& value) {
  if (!text) return false;
  const std::uint32_t id = Hash(text);
  for (const char* word : TrueWords) {
    if (id == Hash(word)) return value = true;
  }
  for (const char* word : FalseWords) {
    if (id == Hash(word)) {
      value = false;
      return true;
    }
  }
  return false;
}

}  // namespace nimbo::base
