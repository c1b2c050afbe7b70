#pragma once

#include <cstddef>
#include <cstdint>

#include "plugin/bytes/Bytes.h"

/// FLV audio tag bodies with an AAC payload. Pure functions over memory that the caller owns.
namespace nimbo::plugin {

constexpr std::size_t AacSequenceHeaderSize = 4;
/// Length of the fixed fields in front of a frame's payload.
constexpr std::size_t AacFrameHeaderSize = 2;

/// What a stream's media tells of its sound.
struct AacFormat {
  int profile = 0;   ///< as in an ADTS header: 0 Main, 1 LC, 2 SSR
  int channels = 0;  ///< 1 or 2
  int rate = 0;      ///< Hz
};

/// The two bytes of an AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1): five bits of audio object
/// type, four of sampling frequency index, four of channel configuration, three zero. What the
/// tables do not know is written as 0; the rates 8000 and 7350 Hz are left out of them on purpose.
std::uint16_t AudioSpecificConfig(const AacFormat& format);

/// Writes the AacSequenceHeaderSize bytes of a sequence header body. Returns their number.
std::size_t WriteAacSequenceHeader(unsigned char* out, const AacFormat& format);
/// Writes the AacFrameHeaderSize bytes in front of a raw frame. Returns their number.
std::size_t WriteAacFrameHeader(unsigned char* out);

}  // namespace nimbo::plugin
