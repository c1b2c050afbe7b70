#pragma once

#include <unistd.h>

#include <utility>

namespace nimbo {

/// Owns a file descriptor.
class FileDescriptor {
 public:
  FileDescriptor() noexcept = default;
  explicit FileDescriptor(int value) noexcept : _value(value) {}
  FileDescriptor(FileDescriptor&& other) noexcept : _value(other.Release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    Reset(other.Release());
    return *this;
  }
  ~FileDescriptor() { Reset(); }

  /// True when there is one: a call that failed gave a negative number.
  explicit operator bool() const noexcept { return _value >= 0; }
  int Get() const noexcept { return _value; }
  /// Leaves it to another owner.
  [[nodiscard]] int Release() noexcept { return std::exchange(_value, -1); }
  /// Closes it and owns `value` from now on.
  void Reset(int value = -1) noexcept {
    const int before = std::exchange(_value, value);
    if (before >= 0) close(before);
  }

 private:
  int _value = -1;
};

}  // namespace nimbo
