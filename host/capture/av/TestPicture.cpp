#include "host/capture/av/TestPicture.h"

#include <algorithm>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "host/capture/Monotonic.h"
#include "host/capture/av/DayClock.h"

namespace nimbo::capture::av {

namespace {

/// Limited-range YUV.
struct Colour {
  int y;
  int u;
  int v;
};
/// Bars of 75 percent: white, yellow, cyan, green, magenta, red, blue, black.
constexpr Colour Bars[] = {{180, 128, 128}, {162, 44, 142}, {131, 156, 44}, {112, 72, 58},
                           {84, 184, 198},  {65, 100, 212}, {35, 212, 114}, {16, 128, 128}};
constexpr int BarCount = sizeof Bars / sizeof *Bars;

/// The parts of the picture, in sixteenths of its height.
constexpr int Parts = 16;
constexpr int BarsEnd = 9;
constexpr int ClockEnd = 13;
constexpr int SweepEnd = 15;

constexpr int ClockCharacters = 26;
constexpr int SweepPart = 32;  ///< the sweeping bar's share of the width
constexpr std::int64_t SweepTime = 4 * NsPerSecond;
constexpr std::uint32_t RandomSeed = 0x2545F491;
constexpr std::uint32_t NoiseMask = 0x7F7F7F7F;

int Even(int value) { return value & ~1; }

}  // namespace

std::string ClockText(std::int64_t dayTime, std::int64_t number) {
  constexpr std::int64_t PerMinute = 60;
  constexpr std::int64_t HoursPerDay = 24;
  constexpr std::int64_t PerHour = PerMinute * PerMinute;
  const std::int64_t second = dayTime / NsPerSecond;
  char text[64];
  std::snprintf(text, sizeof text,
                "%02" PRId64 ":%02" PRId64 ":%02" PRId64 ".%03" PRId64 " / %" PRId64,
                second / PerHour % HoursPerDay, second / PerMinute % PerMinute, second % PerMinute,
                dayTime / NsPerMillisecond % 1000, number);
  return text;
}

void TestPicture::Begin(FramePtr frame) {
  _frame = std::move(frame);
  _random = RandomSeed;
  const int width = _frame->width;
  const int height = _frame->height;
  const int bars = Even(height * BarsEnd / Parts);
  const int clock = Even(height * ClockEnd / Parts);
  const int sweep = Even(height * SweepEnd / Parts);
  _clock = {0, bars, width, clock - bars};
  _sweep = {0, clock, width, sweep - clock};
  _noise = {0, sweep, width, height - sweep};
  _flash = {0, 0, Even(height / BarCount), Even(height / BarCount)};
  _bar = std::max(2, width / SweepPart);
  FillGrey(*_frame, Black);
  for (int bar = 0; bar < BarCount; ++bar) {
    const int left = Even(width * bar / BarCount);
    const Area area = {left, 0, Even(width * (bar + 1) / BarCount) - left, bars};
    Fill(*_frame, 0, area, Bars[bar].y);
    Fill(*_frame, 1, area, Bars[bar].u);
    Fill(*_frame, 2, area, Bars[bar].v);
  }
  for (const int chroma : {1, 2}) Fill(*_frame, chroma, _flash, NoChroma);
}

AVFrame* TestPicture::Draw(std::int64_t dayTime, std::int64_t number) {
  if (av_frame_make_writable(_frame.get()) < 0) return nullptr;
  Fill(*_frame, 0, _flash, dayTime % NsPerSecond < SecondMark ? White : Black);
  Fill(*_frame, 0, _clock, Black);
  DrawText(*_frame, _clock, ClockText(dayTime, number), ClockCharacters);
  Fill(*_frame, 0, _sweep, Grey);
  const auto left = static_cast<int>(dayTime % SweepTime * (_sweep.width - _bar) / (SweepTime - 1));
  Fill(*_frame, 0, {left, _sweep.y, _bar, _sweep.height}, White);
  DrawNoise();
  return _frame.get();
}

void TestPicture::DrawNoise() {
  const std::ptrdiff_t stride = _frame->linesize[0];
  for (int y = 0; y < _noise.height; ++y) {
    unsigned char* line = _frame->data[0] + (_noise.y + y) * stride;
    for (int x = 0; x < _noise.width; x += static_cast<int>(sizeof _random)) {
      // Marsaglia's xorshift.
      _random ^= _random << 13;
      _random ^= _random >> 17;
      _random ^= _random << 5;
      const std::uint32_t pixels = (_random & NoiseMask) + NoiseMask / 4;
      const auto count =
          std::min<std::size_t>(sizeof pixels, static_cast<std::size_t>(_noise.width - x));
      std::memcpy(line + x, &pixels, count);
    }
  }
}

}  // namespace nimbo::capture::av
