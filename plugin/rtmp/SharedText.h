#pragma once

#include <mutex>
#include <string>
#include <utility>

namespace nimbo::plugin::rtmp {

/// A text that the control thread sets while other threads read it. The lock is held only for the
/// copy, and no other lock is taken under it.
class SharedText {
 public:
  void Set(std::string text) {
    const std::lock_guard<std::mutex> lock(_mutex);
    _text = std::move(text);
  }
  std::string Get() const {
    const std::lock_guard<std::mutex> lock(_mutex);
    return _text;
  }

 private:
  mutable std::mutex _mutex;
  std::string _text;
};

}  // namespace nimbo::plugin::rtmp
