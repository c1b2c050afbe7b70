#include "host/capture/av/PipeReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace nimbo::capture::av {

namespace {

constexpr int BufferSize = 32 * 1024;

}  // namespace

Status PipeReader::Open(int descriptor, const std::string& path) {
  Close();
  _pipe.Reset(descriptor >= 0 ? fcntl(descriptor, F_DUPFD_CLOEXEC, 0)
                              : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!_pipe) return Status::Failed(std::strerror(errno));
  // libav frees the buffer, or exchanges it for another one.
  auto* buffer = static_cast<unsigned char*>(av_malloc(BufferSize));
  if (buffer) {
    _context = avio_alloc_context(buffer, BufferSize, 0, this, Read, nullptr, nullptr);
    if (!_context) av_free(buffer);
  }
  return _context ? Status() : Status::Failed("no memory");
}

void PipeReader::Close() {
  if (_context) av_freep(&_context->buffer);
  avio_context_free(&_context);
  _pipe.Reset();
}

int PipeReader::Read(void* self, unsigned char* buffer, int size) {
  auto& reader = *static_cast<PipeReader*>(self);
  while (true) {
    if (!reader._abort.WaitReadable(reader._pipe.Get(), reader._deadline)) return AVERROR_EXIT;
    const ssize_t got = read(reader._pipe.Get(), buffer, static_cast<std::size_t>(size));
    if (got > 0) return static_cast<int>(got);
    if (got == 0) return AVERROR_EOF;
    if (errno != EINTR && errno != EAGAIN) return AVERROR(errno);
  }
}

}  // namespace nimbo::capture::av
