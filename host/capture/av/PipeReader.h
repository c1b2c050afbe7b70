#pragma once

#include <string>

#include "host/capture/ByteWindow.h"
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

  /// [control] Reads from a copy of `descriptor`. False with the reason in `error`.
  bool Open(int descriptor, std::string& error);
  void Close();
  /// Null unless open.
  AVIOContext* Context() const noexcept { return _context; }

 private:
  static int Read(void* self, unsigned char* buffer, int size);

  const AbortEvent& _abort;
  int _descriptor = -1;
  AVIOContext* _context = nullptr;
};

}  // namespace nimbo::capture::av
