#pragma once

#include "host/capture/av/AacEncoder.h"
#include "host/capture/av/Decoder.h"
#include "host/capture/av/StreamPath.h"

namespace nimbo::capture::av {

/// Any audio to AAC LC of one or two channels, at the same rate where that can be described.
class AudioTranscoder final : public StreamPath {
 public:
  /// `bitRate` of all channels in bits per second; 0: as usual.
  Status Open(const AVCodecParameters& parameters, std::int64_t bitRate);
  /// What it makes, in words.
  std::string Described() const;
  Status Push(AVPacket& packet) override;
  Status Break() override;
  Status Finish() override;

 private:
  Status Resample(AVFrame& frame);
  Status EncodeWhole();
  std::int64_t _bit_rate = 0;
  std::int64_t TimeAt(std::int64_t sample) const;

  Decoder _decoder;
  AacEncoder _encoder;
  ResamplerPtr _resampler;
  int _source_rate = 0;  ///< what the resampler was made for
  int _source_format = -1;
  int _source_channels = 0;
  SampleFifoPtr _fifo;
  FramePtr _frame;
  bool _started = false;
  std::int64_t _anchor = 0;   ///< time of sample 0
  std::int64_t _encoded = 0;  ///< samples since the anchor that left the FIFO
};

}  // namespace nimbo::capture::av
