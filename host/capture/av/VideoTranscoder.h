#pragma once

#include <string>

#include "host/capture/av/Decoder.h"
#include "host/capture/av/Encoding.h"
#include "host/capture/av/H264Encoder.h"
#include "host/capture/av/StreamPath.h"

namespace nimbo::capture::av {

/// Any video to H.264 that the wire format can describe, of the same size and rate, both sides
/// rounded down to even numbers, unless another one is asked for. Pictures that come faster than
/// asked for are left out.
class VideoTranscoder final : public StreamPath {
 public:
  Status Open(const AVCodecParameters& parameters, AVRational frameRate, const Encoding& wanted);
  /// What it makes, in words.
  std::string Described() const;
  Status Push(AVPacket& packet) override;
  Status Break() override;
  Status Finish() override { return Break(); }
  std::int64_t BitRate() const override { return _encoder.BitRate(); }
  void SetBitRate(std::int64_t bitRate) override { _encoder.SetBitRate(bitRate); }

 private:
  Status Encode(AVFrame& frame);

  Decoder _decoder;
  H264Encoder _encoder;
  ScalerPtr _scaler;
  FramePtr _scaled;
  H264Encoder::Settings _settings;
  std::string _preset;
  std::int64_t _period = 0;  ///< of one picture
  std::int64_t _due = 0;     ///< of the next picture where some are left out
  bool _thin = false;        ///< fewer pictures than come are asked for
  bool _started = false;
  std::int64_t _last = 0;  ///< time of the last picture encoded
};

}  // namespace nimbo::capture::av
