#include "host/capture/ByteWindow.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace nimbo::capture {

namespace {

/// No access unit is larger: level 5.2 allows about 5 MB for one.
constexpr std::size_t LargestPiece = std::size_t{16} * 1024 * 1024;

}  // namespace

bool ByteWindow::Open(const std::string& path, std::string& error) {
  Close();
  // A named pipe is opened without waiting for its writer, so that an abort can end the wait.
  _file.Reset(path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                          : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!_file) {
    error = std::strerror(errno);
    return false;
  }
  struct stat status {};
  fstat(_file.Get(), &status);
  if (S_ISDIR(status.st_mode)) {
    error = std::strerror(EISDIR);
    Close();
    return false;
  }
  _seekable = S_ISREG(status.st_mode);
  return true;
}

void ByteWindow::Close() {
  _file.Reset();
  _memory.reset();
  _capacity = _begin = _end = 0;
  _offset = 0;
}

bool ByteWindow::Rewind() {
  if (!_seekable || lseek(_file.Get(), 0, SEEK_SET) != 0) return false;
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
    std::memmove(_memory.get(), Bytes().data(), size);
  } else {
    const std::size_t capacity = std::max(size + _read_size, _capacity + _capacity / 2);
    std::unique_ptr<unsigned char[]> memory(new unsigned char[capacity]);
    if (size != 0) std::memcpy(memory.get(), Bytes().data(), size);
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
    const bool readable = _seekable ? !_abort.IsSet() : _abort.WaitReadable(_file.Get(), _deadline);
    if (!readable) return Result::Aborted;
    const ssize_t got = read(_file.Get(), _memory.get() + _end, _read_size);
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
