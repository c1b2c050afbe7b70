#include "host/stream/ControlQueue.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "host/base/ControlThread.h"
#include "host/stream/Shielded.h"

namespace nimbo::stream {

ControlQueue& ControlQueue::Global() {
  static auto& queue = *new ControlQueue;  // threads may leave work while the process ends
  return queue;
}

ControlQueue::ControlQueue() : _event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!_event) throw std::system_error(errno, std::generic_category(), "eventfd");
}

void ControlQueue::Post(std::function<void()> work) {
  const sync::Lock lock(_mutex);
  _work.push_back(std::move(work));
  eventfd_write(_event.Get(), 1);
}

int ControlQueue::Run() {
  base::AssertControlThread();
  const sync::Lock lock(_mutex);
  int done = 0;
  // One at a time, so that work that calls Run itself does not change the order.
  for (auto posted = _work.size(); posted != 0 && !_work.empty(); --posted, ++done) {
    const auto work = std::move(_work.front());
    _work.pop_front();
    const sync::Unlock meanwhile(_mutex);
    Shielded("Work for the control thread", nullptr, [&work] {
      work();
      return true;
    });
  }
  eventfd_t drained = 0;
  if (_work.empty()) eventfd_read(_event.Get(), &drained);
  return done;
}

}  // namespace nimbo::stream
