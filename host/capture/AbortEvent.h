#pragma once

#include <atomic>
#include <cstdint>

#include "common/FileDescriptor.h"
#include "host/capture/Monotonic.h"
#include "nimbo/base/api.h"

namespace nimbo::capture {

/// A switch that ends waits: those under way and all later ones until it is cleared. [any]
class NIMBO_API AbortEvent {
 public:
  AbortEvent();
  AbortEvent(const AbortEvent&) = delete;
  AbortEvent& operator=(const AbortEvent&) = delete;

  void Set();
  void Clear();
  bool IsSet() const;
  /// Waits until the CLOCK_MONOTONIC time `due` (ns). False when the switch ended the wait.
  bool WaitUntil(std::int64_t due) const;
  /// Waits until `descriptor` can be read. False when the switch, or the CLOCK_MONOTONIC time `due`
  /// (ns), ended the wait.
  bool WaitReadable(int descriptor, std::int64_t due = Never) const;

 private:
  std::atomic<bool> _set{false};  ///< so that looking costs no system call
  FileDescriptor _event;
};

}  // namespace nimbo::capture
