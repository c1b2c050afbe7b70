#include "host/stream/ControlQueue.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <system_error>
#include <utility>

#include "host/stream/Console.h"

namespace nimbo::stream {

ControlQueue& ControlQueue::Globle() {
  static auto& queue = *new ControlQueue;  // threads may leave work while the process ends
  return queue;
}

ControlQueue::ControlQueue() : _event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (_event < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
}

ControlQueue::~ControlQueue() { close(_event); }

void ControlQueue::Post(std::function<void()> work) {
  const std::lock_guard<std::mutex> lock(_mutex);
  _work.push_back(std::move(work));
  eventfd_write(_event, 1);
  _changed.notify_all();
}

int ControlQueue::Run() {
  std::unique_lock<std::mutex> lock(_mutex);
  int done = 0;
  // One at a time, so that work that calls Run itself does not change the order.
  for (auto posted = _work.size(); posted != 0 && !_work.empty(); --posted, ++done) {
    const auto work = std::move(_work.front());
    _work.pop_front();
    lock.unlock();
    Shielded("Work for the control thread", nullptr, [&work] {
      work();
      return true;
    });
    lock.lock();
  }
  eventfd_t drained = 0;
  if (_work.empty()) eventfd_read(_event, &drained);
  return done;
}

void ControlQueue::RunFor(std::chrono::nanoseconds duration) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(duration);
  for (;;) {
    Run();
    std::unique_lock<std::mutex> lock(_mutex);
    const auto due = [this] { return _interrupted || !_work.empty(); };
    if (!_changed.wait_until(lock, end, due)) return;
    if (std::exchange(_interrupted, false)) return;
  }
}

void ControlQueue::Interrupt() {
  const std::lock_guard<std::mutex> lock(_mutex);
  _interrupted = true;
  _changed.notify_all();
}

}  // namespace nimbo::stream
