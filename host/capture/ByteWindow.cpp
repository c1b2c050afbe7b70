#include "host/capture/ByteWindow.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sstream>
#include <system_error>

namespace nimbo::capture {

namespace {

/// No access unit is larger: level 5.2 allows about 5 MB for one.
constexpr std::size_t LargestPiece = std::size_t{16} * 1024 * 1024;
constexpr std::int64_t NanosecondsPerSecond = 1'000'000'000;

timespec Until(std::int64_t due) {
  const std::int64_t left = std::max<std::int64_t>(due - MonotonicNow(), 0);
  timespec timeout{};
  timeout.tv_sec = static_cast<time_t>(left / NanosecondsPerSecond);
  timeout.tv_nsec = static_cast<long>(left % NanosecondsPerSecond);
  return timeout;
}

}  // namespace

bool ParsePatience(const std::string& text, std::int64_t& patience) {
  constexpr double MostSeconds = 24 * 60 * 60;
  char* end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  if (end == text.c_str() || *end != '\0' || !(seconds > 0 && seconds <= MostSeconds)) return false;
  patience = std::llround(seconds * static_cast<double>(NanosecondsPerSecond));
  return true;
}

std::string InSeconds(std::int64_t time) {
  std::ostringstream text;
  text << static_cast<double>(time) / static_cast<double>(NanosecondsPerSecond) << " s";
  return text.str();
}

std::int64_t MonotonicNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * NanosecondsPerSecond + now.tv_nsec;
}

AbortEvent::AbortEvent() : _event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (_event < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
}

AbortEvent::~AbortEvent() { close(_event); }

void AbortEvent::Set() {
  _set = true;
  eventfd_write(_event, 1);
}

void AbortEvent::Clear() {
  _set = false;
  eventfd_t count = 0;
  eventfd_read(_event, &count);
}

bool AbortEvent::IsSet() const { return _set; }

bool AbortEvent::WaitUntil(std::int64_t due) const {
  pollfd wait{_event, POLLIN, 0};
  while (!IsSet()) {
    if (MonotonicNow() >= due) return true;
    const timespec timeout = Until(due);
    ppoll(&wait, 1, &timeout, nullptr);
  }
  return false;
}

bool AbortEvent::WaitReadable(int descriptor, std::int64_t due) const {
  pollfd waits[] = {{_event, POLLIN, 0}, {descriptor, POLLIN, 0}};
  for (;;) {
    const timespec timeout = Until(due);
    const int ready = ppoll(waits, std::size(waits), due == Never ? nullptr : &timeout, nullptr);
    if (ready < 0) continue;  // a signal
    if (waits[0].revents != 0) return false;
    if (waits[1].revents != 0) return true;
    if (MonotonicNow() >= due) return false;
  }
}

bool ByteWindow::Open(const std::string& path, std::string& error) {
  Close();
  // A named pipe is opened without waiting for its writer, so that an abort can end the wait.
  _descriptor = path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                            : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (_descriptor < 0) {
    error = std::strerror(errno);
    return false;
  }
  struct stat status {};
  fstat(_descriptor, &status);
  if (S_ISDIR(status.st_mode)) {
    error = std::strerror(EISDIR);
    Close();
    return false;
  }
  _seekable = S_ISREG(status.st_mode);
  return true;
}

void ByteWindow::Close() {
  if (_descriptor >= 0) close(_descriptor);
  _descriptor = -1;
  _memory.reset();
  _capacity = _begin = _end = 0;
  _offset = 0;
}

bool ByteWindow::Rewind() {
  if (!_seekable || lseek(_descriptor, 0, SEEK_SET) != 0) return false;
  _begin = _end = 0;
  _offset = 0;
  return true;
}

bool ByteWindow::MakeRoom() {
  const std::size_t size = Size();
  if (size > LargestPiece - _read_size) return false;
  if (_capacity - _end >= _read_size) return true;
  // Moving is cheap as long as the piece is at most half of the memory.
  if (_capacity - size >= _read_size && size <= _capacity / 2) {
    std::memmove(_memory.get(), Data(), size);
  } else {
    const std::size_t capacity = std::max(size + _read_size, _capacity + _capacity / 2);
    std::unique_ptr<unsigned char[]> memory(new unsigned char[capacity]);
    if (size != 0) std::memcpy(memory.get(), Data(), size);
    _memory = std::move(memory);
    _capacity = capacity;
  }
  _begin = 0;
  _end = size;
  return true;
}

ByteWindow::Result ByteWindow::More() {
  if (!MakeRoom()) return Result::TooLarge;
  for (;;) {
    // A regular file can always be read.
    const bool readable = _seekable ? !_abort.IsSet() : _abort.WaitReadable(_descriptor, _deadline);
    if (!readable) return Result::Aborted;
    const ssize_t got = read(_descriptor, _memory.get() + _end, _read_size);
    if (got > 0) {
      _end += static_cast<std::size_t>(got);
      return Result::More;
    }
    if (got == 0) return Result::End;
    if (errno == EINTR || errno == EAGAIN) continue;
    _error = std::strerror(errno);
    return Result::Failed;
  }
}

void ByteWindow::Use(std::size_t size) {
  _begin += size;
  _offset += size;
}

}  // namespace nimbo::capture
