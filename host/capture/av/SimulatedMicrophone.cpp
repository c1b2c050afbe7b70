#include "host/capture/av/SimulatedMicrophone.h"

#include <algorithm>
#include <cmath>

#include "host/capture/Adts.h"
#include "host/capture/av/DayClock.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace nimbo::capture::av {

namespace {

constexpr int DefaultRate = 48000;
constexpr int DefaultChannels = 2;
constexpr int DefaultBitRatePerChannel = 64'000;

/// Whole numbers of waves fit into a second, so that seconds join without a click.
constexpr double ToneFrequency = 440;
constexpr double ToneLevel = 0.03;
constexpr double BeepFrequency = 1000;
constexpr double BeepLevel = 0.4;
constexpr double Circle = 6.283185307179586;

std::vector<float> OneSecond(int rate) {
  std::vector<float> second(static_cast<std::size_t>(rate));
  const auto beep = static_cast<std::size_t>(av_rescale(SecondMark, rate, NsPerSecond));
  for (std::size_t i = 0; i < second.size(); ++i) {
    const bool inBeep = i < beep;
    const double turns = (inBeep ? BeepFrequency : ToneFrequency) * static_cast<double>(i) / rate;
    second[i] = static_cast<float>((inBeep ? BeepLevel : ToneLevel) * std::sin(Circle * turns));
  }
  return second;
}

}  // namespace

bool SimulatedMicrophone::Configure(const base::AttrSet& options) {
  _rate = DefaultRate;
  _channels = DefaultChannels;
  _bit_rate = 0;
  if (!ReadOptions(options,
                   {{"rate", &_rate, {DescribableAacRates.back(), DescribableAacRates.front()}},
                    {"channel", &_channels, {1, 2}},
                    {"br", &_bit_rate, {8'000, 512'000}}},
                   {})) {
    return false;
  }
  if (AacRateIndex(_rate) < 0) {
    return Refuse("option rate=" + std::to_string(_rate) + " must be one of " + AacRateList());
  }
  if (_bit_rate == 0) _bit_rate = DefaultBitRatePerChannel * _channels;
  SetPace({_rate, AacFrameSamples});
  // A frame is complete when its last sample has been taken.
  SetDelay(1);
  return true;
}

bool SimulatedMicrophone::OpenEncoder() {
  const Status opened = _encoder.Open(_rate, _channels, _bit_rate);
  if (!opened) return Refuse("the encoder cannot be opened: " + opened.Why());
  _frame.reset(_encoder.NewFrame());
  if (!_frame) return Refuse("no memory for sound");
  _second = OneSecond(_rate);
  _output.SetMedia(_encoder.NewMedia());
  return true;
}

void SimulatedMicrophone::Begin(std::int64_t start) {
  _offset = av_rescale((start + DayClockOffset()) % NsPerSecond, _rate, NsPerSecond);
}

bool SimulatedMicrophone::Produce(std::int64_t index, std::int64_t time) {
  if (av_frame_make_writable(_frame.get()) < 0) return Refuse("no memory for sound");
  const auto samples = static_cast<std::int64_t>(_second.size());
  auto place = static_cast<std::size_t>((_offset + index * AacFrameSamples) % samples);
  for (int sample = 0; sample < _frame->nb_samples; ++sample) {
    for (int channel = 0; channel < _encoder.Channels(); ++channel) {
      reinterpret_cast<float*>(_frame->data[channel])[sample] = _second[place];
    }
    if (++place == _second.size()) place = 0;
  }
  const Status encoded = _encoder.Encode(_frame.get(), time, _output);
  return encoded || Refuse("sound cannot be encoded: " + encoded.Why());
}

void SimulatedMicrophone::CloseEncoder() {
  _encoder = {};
  _frame.reset();
  _second.clear();
}

}  // namespace nimbo::capture::av
