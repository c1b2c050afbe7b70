#pragma once

#include <cstdint>
#include <string>

#include "host/capture/av/Drawing.h"
#include "host/capture/av/Libav.h"

namespace nimbo::capture::av {

/// Draws the pictures of a simulated camera: colour bars, a bar that sweeps across, the time of
/// day and the frame's number, a square that is white at the start of each second, and a strip of
/// noise, which gives the encoder something to do at any bit rate. What does not move is drawn
/// once.
class TestPicture {
 public:
  /// Takes a frame in YUV 4:2:0 with even sides and draws what stands still.
  void Begin(FramePtr frame);
  /// Draws the picture for a time of the day clock in nanoseconds. Null when there is no memory.
  AVFrame* Draw(std::int64_t dayTime, std::int64_t number);

 private:
  void DrawNoise();

  FramePtr _frame;
  Area _clock = {};
  Area _sweep = {};
  Area _noise = {};
  Area _flash = {};
  int _bar = 0;  ///< width of the sweeping bar
  std::uint32_t _random = 0;
};

/// "HH:MM:SS.mmm / NUMBER".
std::string ClockText(std::int64_t dayTime, std::int64_t number);

}  // namespace nimbo::capture::av
