#pragma once

#include <string>

#include "common/FileDescriptor.h"
#include "common/Status.h"
#include "host/capture/AbortEvent.h"
#include "host/capture/av/Libav.h"

namespace nimbo::capture::av {

/// Reads a pipe for libavformat, whose own reader cannot be interrupted while the pipe is empty.
class PipeReader {
 public:
  /// `abort` must stay alive while the reader is used.
  explicit PipeReader(const AbortEvent& abort) : _abort(abort) {}
  PipeReader(const PipeReader&) = delete;
  PipeReader& operator=(const PipeReader&) = delete;
  ~PipeReader() { Close(); }

  /// [control] Reads from a copy of `descriptor`, or, where that is negative, from the named pipe
  /// at `path`, without waiting for its writer.
  Status Open(int descriptor, const std::string& path);
  void Close();
  /// A read waits up to this CLOCK_MONOTONIC time (ns) only.
  void SetDeadline(std::int64_t due) { _deadline = due; }
  /// Null unless open.
  AVIOContext* Context() const noexcept { return _context; }

 private:
  static int Read(void* self, unsigned char* buffer, int size);

  const AbortEvent& _abort;
  FileDescriptor _pipe;
  std::int64_t _deadline = Never;
  AVIOContext* _context = nullptr;
};

}  // namespace nimbo::capture::av
