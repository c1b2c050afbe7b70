#pragma once

#include "nimbo/base/platform.h"

namespace nimbo::plugin {

/// Switches the floating-point unit on for a scope, where `active`.
class VfpBracket {
 public:
  explicit VfpBracket(bool active = true) : _active(active) {
    if (_active) vfp_enable();
  }
  ~VfpBracket() {
    if (_active) vfp_disable();
  }
  VfpBracket(const VfpBracket&) = delete;
  VfpBracket& operator=(const VfpBracket&) = delete;

 private:
  bool _active;
};

}  // namespace nimbo::plugin
