#pragma once

#include <unistd.h>

#include <utility>

namespace nimbo::cli {

/// Owns a file descriptor.
class FileDescriptor {
 public:
  explicit FileDescriptor(int value = -1) noexcept : _value(value) {}
  FileDescriptor(FileDescriptor&& other) noexcept : _value(std::exchange(other._value, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(_value, other._value);
    return *this;
  }
  ~FileDescriptor() {
    if (_value >= 0) close(_value);
  }
  int Get() const noexcept { return _value; }
  /// Leaves it to another owner.
  int Release() noexcept { return std::exchange(_value, -1); }

 private:
  int _value;
};

}  // namespace nimbo::cli
