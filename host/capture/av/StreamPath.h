#pragma once

#include <cstdint>

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

  /// [control] With how many bits a second its pictures are encoded here; 0: they are not.
  virtual std::int64_t BitRate() const { return 0; }
  virtual void SetBitRate(std::int64_t) {}

  StreamOutput& Output() noexcept { return _output; }

 protected:
  StreamOutput _output;
};

}  // namespace nimbo::capture::av
