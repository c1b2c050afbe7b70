#pragma once

#include <vector>

#include "host/capture/av/AacEncoder.h"
#include "host/capture/av/SimulatedSource.h"

namespace nimbo::capture::av {

/// AAC of a quiet tone with a beep at each full second, when the picture flashes. Options: rate
/// (Hz), channel (1 or 2), br (bits a second, all channels).
class SimulatedMicrophone final : public SimulatedSource {
 public:
  using SimulatedSource::SimulatedSource;
  bool Configure(const base::AttrSet& options) override;
  std::vector<std::string> Outputs() const override { return {"aac"}; }

 private:
  bool OpenEncoder() override;
  void Begin(std::int64_t start) override;
  bool Produce(std::int64_t index, std::int64_t time) override;
  void CloseEncoder() override;

  int _rate = 0;      ///< Hz
  int _channels = 0;  ///< 1 or 2
  int _bit_rate = 0;  ///< bits a second, all channels
  AacEncoder _encoder;
  FramePtr _frame;
  std::vector<float> _second;  ///< the sound of one second; it repeats
  std::int64_t _offset = 0;    ///< the place in it at which period 0 begins
};

}  // namespace nimbo::capture::av
