#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include "common/FileDescriptor.h"

namespace nimbo::cli {

/// Takes SIGINT, SIGTERM and, unless it is ignored (nohup), SIGHUP out of all threads and tells
/// them to the control thread through a descriptor. From then on nobody waits for a terminal. A
/// second signal that arrives before the first was forgotten ends the process at once, so that a
/// program that hangs while it stops can still be ended from the keyboard; so does time. SIGUSR1
/// wakes the control thread, too.
///
/// Must be made before any other thread is, because threads inherit the signals that they block.
class SignalWatch {
 public:
  /// How long a goodbye to many servers that do not listen may take.
  static constexpr std::chrono::seconds LongestGoodbye{60};

  explicit SignalWatch(std::chrono::milliseconds patience = LongestGoodbye);
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;
  /// The signals stay blocked.
  ~SignalWatch();

  /// [any] Readable from the first signal until Forget.
  int Descriptor() const noexcept { return _told.Get(); }
  /// [any] The number of the first signal since Forget; 0 when there was none.
  int Number() const noexcept { return _number.load(); }
  /// [control] Whether the descriptor can be read for such a signal; for SIGUSR1 it is read.
  bool Ends();
  /// [control] Whether SIGUSR1 has come since the last call, which ends nothing.
  bool TakeReload() noexcept { return _reload.exchange(false); }
  /// [control] The signal was dealt with.
  void Forget();

 private:
  void Watch();

  const std::chrono::milliseconds _patience;
  std::atomic<int> _number{0};
  std::atomic<bool> _reload{false};
  FileDescriptor _signals;
  FileDescriptor _told;
  FileDescriptor _end;
  std::thread _thread;
};

}  // namespace nimbo::cli
