#pragma once

#include <string>
#include <utility>

#include "sync/Mutex.h"

namespace nimbo::plugin {

/// A text that the control thread sets while other threads read it. The lock is held only for the
/// copy, and no other lock is taken under it.
class SharedText {
 public:
  void Set(std::string text) {
    const sync::Lock lock(_mutex);
    _text = std::move(text);
  }
  std::string Get() const {
    const sync::Lock lock(_mutex);
    return _text;
  }

 private:
  mutable sync::Mutex _mutex;
  std::string _text GUARDED_BY(_mutex);
};

}  // namespace nimbo::plugin
