#include "host/capture/av/SimulatedCamera.h"

#include <atomic>
#include <cstring>

#include "host/base/Console.h"
#include "host/capture/av/DayClock.h"

namespace nimbo::capture::av {

namespace {

constexpr int DefaultWidth = 1280;
constexpr int DefaultHeight = 720;
constexpr int DefaultFrameRate = 30;
constexpr int DefaultBitRate = 2'000'000;
constexpr int DefaultGop = 30;

/// The effort that a small processor manages in real time, and the profile that fits it.
constexpr char Preset[] = "ultrafast";
constexpr char Profile[] = "baseline";

std::atomic<bool> s_told_order{false};

/// A group type with a "b" asks for pictures predicted from both sides.
void TellOrder(const std::string& name, const char* groupType) {
  if (!std::strpbrk(groupType, "bB") || s_told_order.exchange(true)) return;
  Explain(name, ": gopTypeStr=", groupType,
          " asks for reordered pictures; the simulated camera encodes without reordering");
}

}  // namespace

bool SimulatedCamera::Configure(const base::AttrSet& options) {
  int frameRate = DefaultFrameRate;
  int bitRate = DefaultBitRate;
  _settings.width = DefaultWidth;
  _settings.height = DefaultHeight;
  _settings.gop = DefaultGop;
  if (!ReadOptions(options,
                   {{"W", &_settings.width, {64, 7680}},
                    {"H", &_settings.height, {64, 4320}},
                    {"fr", &frameRate, {1, 240}},
                    {"br", &bitRate, {10'000, 200'000'000}},
                    {"gop", &_settings.gop, {1, 10'000}}},
                   {"gopTypeStr"})) {
    return false;
  }
  if (_settings.width % 2 != 0 || _settings.height % 2 != 0) {
    return Refuse("W=" + std::to_string(_settings.width) +
                  ",H=" + std::to_string(_settings.height) + " must both be even");
  }
  if (const char* groupType = options.Get("gopTypeStr")) TellOrder(Name(), groupType);
  _settings.frameRate = {frameRate, 1};
  _settings.bitRate = bitRate;
  _settings.preset = Preset;
  _settings.profile = Profile;
  SetPace({frameRate, 1});
  return true;
}

bool SimulatedCamera::OpenEncoder() {
  const Status opened = _encoder.Open(_settings);
  if (!opened) return Refuse("the encoder cannot be opened: " + opened.Why());
  FramePtr frame(_encoder.NewFrame());
  if (!frame) return Refuse("no memory for a picture");
  _picture.Begin(std::move(frame));
  _output.SetMedia(_encoder.NewMedia());
  return true;
}

void SimulatedCamera::Begin(std::int64_t) { _key = true; }

bool SimulatedCamera::Produce(std::int64_t index, std::int64_t time) {
  AVFrame* frame = _picture.Draw(time + DayClockOffset(), index);
  if (!frame) return Refuse("no memory for a picture");
  const Status encoded = _encoder.Encode(*frame, time, _key, _output);
  if (!encoded) return Refuse("a picture cannot be encoded: " + encoded.Why());
  _key = false;
  return true;
}

void SimulatedCamera::CloseEncoder() {
  _encoder.Close();
  _picture = {};
}

}  // namespace nimbo::capture::av
