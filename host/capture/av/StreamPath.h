#pragma once

#include "common/Status.h"
#include "host/capture/av/Libav.h"
#include "host/capture/av/StreamOutput.h"

namespace nimbo::capture::av {

/// The way of one stream from the demuxer to packets of the framework. Times are nanoseconds on the
/// demuxer's time line. After a failure the stream has ended.
class StreamPath {
 public:
  virtual ~StreamPath() = default;

  /// Takes a packet of the demuxer.
  virtual Status Push(AVPacket& packet) = 0;
  /// What follows does not continue what came before.
  virtual Status Break() { return {}; }
  /// Nothing follows.
  virtual Status Finish() { return {}; }

  StreamOutput& Output() noexcept { return _output; }

 protected:
  StreamOutput _output;
};

}  // namespace nimbo::capture::av
