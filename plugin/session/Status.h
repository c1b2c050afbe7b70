#pragma once

#include <string>
#include <utility>

namespace nimbo::plugin {

/// What came of a step: success, or why it failed, in words for somebody who publishes.
class [[nodiscard]] Status {
 public:
  /// Success.
  Status() = default;
  /// Failure. Nothing is said where the reason is the caller's own doing.
  static Status Failed(std::string why = {}) {
    Status status;
    status._ok = false;
    status._why = std::move(why);
    return status;
  }

  explicit operator bool() const { return _ok; }
  const std::string& Why() const { return _why; }

 private:
  bool _ok = true;
  std::string _why;
};

}  // namespace nimbo::plugin
