#pragma once

#include <functional>

#include "common/Status.h"
#include "host/capture/av/Libav.h"

namespace nimbo::capture::av {

/// One of libav's decoders.
class Decoder {
 public:
  /// Takes a frame, its presentation time in nanoseconds or AV_NOPTS_VALUE in `pts`.
  using Take = std::function<Status(AVFrame& frame)>;

  /// Fails when libav cannot decode such a stream.
  Status Open(const AVCodecParameters& parameters);
  /// Decodes a packet, null for what is left inside, and hands each frame to `take`. Damaged
  /// packets are left out. Fails when `take` does or the decoder cannot go on.
  Status Decode(AVPacket* packet, const Take& take);
  /// Makes it ready for what follows after Decode(null).
  void Restart() { avcodec_flush_buffers(_codec.get()); }

 private:
  CodecPtr _codec;
  FramePtr _frame;
};

}  // namespace nimbo::capture::av
