#pragma once

#include <cstddef>
#include <string>

#include "nimbo/base/api.h"

namespace nimbo::base {

/// The framework's text stream. Numbers are written in decimal, `bool` as "true" or "false",
/// pointers as "0x" and lower-case hexadecimal digits (a null pointer as "0x0"), a null text as
/// "(null)". One call of Write, or of operator<< with a text, is written whole: the pieces of two
/// threads never mix.
class NIMBO_API ostream {
 public:
  virtual ~ostream();
  /// [any] Writes `size` bytes.
  virtual void Write(const char* text, std::size_t size) = 0;

  ostream& operator<<(const char* text);
  ostream& operator<<(const std::string& text);
  ostream& operator<<(char character);
  ostream& operator<<(bool value);
  ostream& operator<<(int value);
  ostream& operator<<(unsigned int value);
  ostream& operator<<(long value);
  ostream& operator<<(unsigned long value);
  ostream& operator<<(long long value);
  ostream& operator<<(unsigned long long value);
  ostream& operator<<(double value);
  ostream& operator<<(const void* pointer);
};

/// A stream that appends to a string. The string must stay alive while the stream is used.
class NIMBO_API ostream_string : public ostream {
 public:
  explicit ostream_string(std::string& text) : _text(text) {}
  void Write(const char* text, std::size_t size) override;

 private:
  std::string& _text;
};

/// The console stream. [any]
extern NIMBO_API ostream& cout;

/// Length of the build root in front of every source path that is printed.
extern "C" NIMBO_API int __root_path_offset;

/// [any] Writes the pointer's text form into `text`, as operator<<(const void*) prints it.
NIMBO_API bool ConvertToImpl(const void* pointer, std::string& text);
/// [any] Reads a truth value: "true", "yes", "on", "1" and "false", "no", "off", "0" in any mix of
/// capitals. False, with `value` untouched, for a null or any other text.
NIMBO_API bool ConvertToImpl(const char* text, bool& value);

}  // namespace nimbo::base
