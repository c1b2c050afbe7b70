#include "host/capture/AbortEvent.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <iterator>
#include <system_error>

#include "host/base/Clock.h"

namespace nimbo::capture {

namespace {

timespec Until(std::int64_t due) {
  const std::int64_t left =
      std::chrono::nanoseconds(Clock::Left(Clock::time_point(std::chrono::nanoseconds(due))))
          .count();
  timespec timeout{};
  timeout.tv_sec = static_cast<time_t>(left / NsPerSecond);
  timeout.tv_nsec = static_cast<long>(left % NsPerSecond);
  return timeout;
}

}  // namespace

AbortEvent::AbortEvent() : _event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!_event) throw std::system_error(errno, std::generic_category(), "eventfd");
}

void AbortEvent::Set() {
  _set = true;
  eventfd_write(_event.Get(), 1);
}

void AbortEvent::Clear() {
  _set = false;
  eventfd_t count = 0;
  eventfd_read(_event.Get(), &count);
}

bool AbortEvent::IsSet() const { return _set; }

bool AbortEvent::WaitUntil(std::int64_t due) const {
  pollfd wait{_event.Get(), POLLIN, 0};
  while (!IsSet()) {
    if (MonotonicNow() >= due) return true;
    const timespec timeout = Until(due);
    ppoll(&wait, 1, &timeout, nullptr);
  }
  return false;
}

bool AbortEvent::WaitReadable(int descriptor, std::int64_t due) const {
  pollfd waits[] = {{_event.Get(), POLLIN, 0}, {descriptor, POLLIN, 0}};
  for (;;) {
    const timespec timeout = Until(due);
    const int ready = ppoll(waits, std::size(waits), due == Never ? nullptr : &timeout, nullptr);
    if (ready < 0) continue;  // a signal
    if (waits[0].revents != 0) return false;
    if (waits[1].revents != 0) return true;
    if (MonotonicNow() >= due) return false;
  }
}

}  // namespace nimbo::capture
