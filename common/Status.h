#pragma once

#include <optional>
#include <string>
#include <utility>

namespace nimbo {

/// What came of a step: success, or why it failed, in words for somebody who publishes.
class [[nodiscard]] Status {
 public:
  /// Success.
  Status() = default;
  /// Failure. Nothing is said where the reason is the caller's own doing, or was told already.
  static Status Failed(std::string why = {}) {
    Status status;
    status._ok = false;
    status._why = std::move(why);
    return status;
  }

  explicit operator bool() const noexcept { return _ok; }
  const std::string& Why() const noexcept { return _why; }

 private:
  bool _ok = true;
  std::string _why;
};

/// What a step made, or why it failed.
template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : _value(std::move(value)) {}  // NOLINT(google-explicit-constructor)
  /// `failure` is one.
  Result(Status failure) : _failure(std::move(failure)) {}  // NOLINT(google-explicit-constructor)

  explicit operator bool() const noexcept { return _value.has_value(); }
  /// Only when there is one.
  T& operator*() noexcept { return *_value; }
  T* operator->() noexcept { return &*_value; }
  const std::string& Why() const noexcept { return _failure.Why(); }
  const Status& Failure() const noexcept { return _failure; }

 private:
  std::optional<T> _value;
  Status _failure;
};

}  // namespace nimbo
