#include "host/capture/ByteWindow.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>

namespace nimbo::capture {

Status ByteWindow::Open(const std::string& path) {
  Close();
  // A named pipe is opened without waiting for its writer, so that an abort can end the wait.
  _file.Reset(path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                          : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!_file) return Status::Failed(std::strerror(errno));
  struct stat status {};
  fstat(_file.Get(), &status);
  if (S_ISDIR(status.st_mode)) {
    Close();
    return Status::Failed(std::strerror(EISDIR));
  }
  _seekable = S_ISREG(status.st_mode);
  return {};
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

void ByteWindow::MakeRoom() {
  assert(!Full());
  const std::size_t size = Size();
  if (_capacity - _end >= _read_size) return;
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
}

Result<Reading> ByteWindow::More() {
  MakeRoom();
  for (;;) {
    // A regular file can always be read.
    const bool readable = _seekable ? !_abort.IsSet() : _abort.WaitReadable(_file.Get(), _deadline);
    if (!readable) return Reading::Aborted;
    const ssize_t got = read(_file.Get(), _memory.get() + _end, _read_size);
    if (got > 0) {
      _end += static_cast<std::size_t>(got);
      return Reading::Ready;
    }
    if (got == 0) return Reading::End;
    if (errno == EINTR || errno == EAGAIN) continue;
    const std::string reason = std::strerror(errno);
    return Status::Failed(reason + " at byte " + std::to_string(_offset + Size()));
  }
}

void ByteWindow::Use(std::size_t size) {
  _begin += size;
  _offset += size;
}

}  // namespace nimbo::capture
