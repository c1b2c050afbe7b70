#pragma once

#include <atomic>
#include <thread>

#include "common/FileDescriptor.h"

namespace nimbo::cli {

/// Takes SIGINT and SIGTERM out of all threads and tells them to the control thread through a
/// descriptor. A second signal that arrives before the first was forgotten ends the process at
/// once, so that a program that hangs while it stops can still be ended from the keyboard.
///
/// Must be made before any other thread is, because threads inherit the signals that they block.
class SignalWatch {
 public:
  SignalWatch();
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;
  /// The signals stay blocked.
  ~SignalWatch();

  /// [any] Readable from the first signal until Forget.
  int Descriptor() const noexcept { return _told.Get(); }
  /// [any] The number of the first signal since Forget; 0 when there was none.
  int Number() const noexcept { return _number.load(); }
  /// [control] The signal was dealt with.
  void Forget();

 private:
  void Watch();

  std::atomic<int> _number{0};
  FileDescriptor _signals;
  FileDescriptor _told;
  FileDescriptor _end;
  std::thread _thread;
};

}  // namespace nimbo::cli
