#pragma once

#include "host/capture/av/AacEncoder.h"
#include "host/capture/av/Decoder.h"
#include "host/capture/av/H264Encoder.h"
#include "host/capture/av/StreamPath.h"

namespace nimbo::capture::av {

/// Any video to H.264 that the wire format can describe, of the same size and rate, both sides
/// rounded down to even numbers.
class VideoTranscoder final : public StreamPath {
 public:
  bool Open(const AVCodecParameters& parameters, AVRational frameRate, std::string& error);
  bool Push(AVPacket& packet, std::string& error) override;
  bool Break(std::string& error) override;
  bool Finish(std::string& error) override { return Break(error); }

 private:
  bool Encode(AVFrame& frame, std::string& error);

  Decoder _decoder;
  H264Encoder _encoder;
  ScalerPtr _scaler;
  FramePtr _scaled;
  std::int64_t _period = 0;  ///< of one picture
  bool _started = false;
  std::int64_t _last = 0;  ///< time of the last picture encoded
};

/// Any audio to AAC LC of one or two channels, at the same rate where that can be described.
class AudioTranscoder final : public StreamPath {
 public:
  bool Open(const AVCodecParameters& parameters, std::string& error);
  bool Push(AVPacket& packet, std::string& error) override;
  bool Break(std::string& error) override;
  bool Finish(std::string& error) override;

 private:
  bool Resample(AVFrame& frame, std::string& error);
  bool EncodeWhole(std::string& error);
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
