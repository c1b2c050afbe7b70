#pragma once

#include "host/capture/av/H264Encoder.h"
#include "host/capture/av/SimulatedSource.h"
#include "host/capture/av/TestPicture.h"

namespace nimbo::capture::av {

/// H.264 of TestPicture. Options: W, H (pixels), fr (pictures a second), br (bits a second), gop
/// (pictures from key frame to key frame), gopTypeStr.
class SimulatedCamera final : public SimulatedSource {
 public:
  using SimulatedSource::SimulatedSource;
  bool Configure(const base::AttrSet& options) override;
  std::vector<std::string> Outputs() const override { return {"h264"}; }
  std::int64_t BitRate() const override { return _encoder.BitRate(); }
  void SetBitRate(std::int64_t bitRate) override { _encoder.SetBitRate(bitRate); }

 private:
  bool OpenEncoder() override;
  void Begin(std::int64_t start) override;
  bool Produce(std::int64_t index, std::int64_t time) override;
  void CloseEncoder() override;

  H264Encoder::Settings _settings;
  H264Encoder _encoder;
  TestPicture _picture;
  bool _key = false;
};

}  // namespace nimbo::capture::av
