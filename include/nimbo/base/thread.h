#pragma once

#include <functional>
#include <memory>

#include "nimbo/base/api.h"

namespace nimbo::base {

/// A named thread that runs one function at a time.
class NIMBO_API Thread {
 public:
  /// [any] Prepares a thread; nothing runs yet. `priority` and `policy` are numbers of the device's
  /// scheduler: the thread's rank, and the class in which that counts. What each number means there
  /// is the maker's; a sending thread asks for 19 and 10. The reference host runs every thread as
  /// the system's default. `stackSize` is the stack in bytes that the thread needs at least.
  Thread(const char* name, int priority, int policy, int stackSize);
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;
  /// [any] Joins a thread that still runs.
  ~Thread();

  /// [control] Runs `body` once in the thread. False when it already runs or cannot be started.
  bool Once(std::function<void()> body);
  /// [control] Waits until the function has returned; returns at once when none runs. Must not be
  /// called from the thread itself.
  bool Join();

 private:
  struct State;
  std::unique_ptr<State> _state;
};

}  // namespace nimbo::base
