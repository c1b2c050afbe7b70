#pragma once

#include <functional>
#include <string>

#include "host/capture/av/Libav.h"

namespace nimbo::capture::av {

/// One of libav's decoders.
class Decoder {
 public:
  /// Takes a frame, its presentation time in nanoseconds or AV_NOPTS_VALUE in `pts`.
  using Take = std::function<bool(AVFrame& frame)>;

  /// False, with `error` set, when libav cannot decode such a stream.
  bool Open(const AVCodecParameters& parameters, std::string& error);
  /// Decodes a packet, null for what is left inside, and hands each frame to `take`. Damaged
  /// packets are left out. False when `take` says so, or, with `error` set, when the decoder cannot
  /// go on.
  bool Decode(AVPacket* packet, std::string& error, const Take& take);
  /// Makes it ready for what follows after Decode(null).
  void Restart() { avcodec_flush_buffers(_codec.get()); }

 private:
  CodecPtr _codec;
  FramePtr _frame;
};

}  // namespace nimbo::capture::av
