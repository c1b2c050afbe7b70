#pragma once

#include <cstddef>

#include "plugin/bytes/Bytes.h"

/// FLV video tag bodies with an AVC payload. Pure functions over memory that the caller owns.
namespace nimbo::plugin {

/// Length of the fixed fields in front of a frame's payload.
constexpr std::size_t AvcFrameHeaderSize = 9;
/// Lengths that an AVCDecoderConfigurationRecord can tell in its 16-bit fields. The SPS must reach
/// to its level byte, which is copied into the record.
constexpr std::size_t MinSpsSize = 4;
constexpr std::size_t MaxParameterSetSize = 0xFFFF;

/// The payload of an access unit in Annex B form (ISO/IEC 14496-10 annex B): its first slice NAL
/// unit (type 1 or 5) and everything behind it, without the start code in front. Reads only what
/// lies in front of that slice. Without a slice it is what is left when five bytes or fewer remain.
Bytes FindFirstSlice(Bytes accessUnit);

/// Length in bytes of the sequence header body for these parameter sets.
constexpr std::size_t AvcSequenceHeaderSize(std::size_t sps, std::size_t pps) {
  return 16 + sps + pps;
}

/// Writes the sequence header body: an AVCDecoderConfigurationRecord (ISO/IEC 14496-15, 5.2.4.1)
/// with one SPS and one PPS, NAL units without start codes. `out` has AvcSequenceHeaderSize bytes;
/// `sps` at least MinSpsSize, both at most MaxParameterSetSize. Returns the length written.
std::size_t WriteAvcSequenceHeader(unsigned char* out, Bytes sps, Bytes pps);

/// Writes the AvcFrameHeaderSize bytes in front of a payload of `payloadSize` bytes. Returns their
/// number.
std::size_t WriteAvcFrameHeader(unsigned char* out, bool key, std::size_t payloadSize);

}  // namespace nimbo::plugin
