#pragma once

#include <deque>
#include <functional>

#include "common/FileDescriptor.h"
#include "nimbo/base/api.h"
#include "sync/Mutex.h"

namespace nimbo::stream {

/// Work that other threads leave for the control thread, done in order. Whoever runs the control
/// thread calls Run.
class NIMBO_API ControlQueue {
 public:
  static ControlQueue& Global();

  /// [any] Leaves work. It must not refer to objects that may be gone when it runs.
  void Post(std::function<void()> work) EXCLUDES(_mutex);
  /// [control] Does what has been posted so far. Returns how many pieces that were.
  int Run() EXCLUDES(_mutex);
  /// [any] A descriptor that is readable while work is waiting, for use with poll.
  int Descriptor() const noexcept { return _event.Get(); }

 private:
  ControlQueue();

  sync::Mutex _mutex;
  std::deque<std::function<void()>> _work GUARDED_BY(_mutex);
  FileDescriptor _event;
};

}  // namespace nimbo::stream
