#pragma once

#include "nimbo/base/api.h"

namespace nimbo::base {

/// The process's control thread: all that is tagged [control] is called on it. It is the one that
/// has loaded the framework, unless another one takes its place.
class NIMBO_API ControlThread {
 public:
  /// The calling thread takes the place of the control thread, which makes no such call any more.
  static void Claim() noexcept;
  /// [any]
  static bool Here() noexcept;
};

/// What is tagged [control] begins with it: in debug builds a call on another thread ends the
/// process, because its harm would show at another place and time.
void AssertControlThread() noexcept;

}  // namespace nimbo::base
