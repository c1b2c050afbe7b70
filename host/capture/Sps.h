#pragma once

#include <cstdint>
#include <optional>

#include "host/capture/H264.h"
#include "nimbo/base/api.h"

namespace nimbo::capture {

/// A number of frames per second as a fraction; {0, 1} stands for unknown.
struct FrameRate {
  std::uint32_t frames = 0;
  std::uint32_t seconds = 1;
};

/// What a sequence parameter set of H.264 tells.
struct SpsInfo {
  int width = 0;   ///< pixels, after cropping
  int height = 0;  ///< pixels, after cropping
  FrameRate rate;  ///< from the timing of its VUI, where that is present and not zero
};

/// [any] Reads the NAL unit `nal` (without start code, emulation prevention in place) after ISO/IEC
/// 14496-10, 7.3.2.1.1. Nothing when it is no SPS, ends before the picture size or holds values
/// that the standard does not allow. One that ends inside its VUI has no frame rate.
NIMBO_API std::optional<SpsInfo> ParseSps(ByteSpan nal);

/// [any] The fraction in lowest terms, or near it with terms small enough for TimeOf.
NIMBO_API FrameRate Reduced(std::uint32_t frames, std::uint32_t seconds);

/// [any] The time in nanoseconds, from the first one on, of the frame `index` at `rate`, which is
/// known and reduced. Does not drift.
NIMBO_API std::int64_t TimeOf(std::uint64_t index, const FrameRate& rate);

}  // namespace nimbo::capture
