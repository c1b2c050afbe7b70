#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "nimbo/base/api.h"

/// AAC in ADTS frames (ISO/IEC 14496-3, 1.A).

namespace nimbo::capture {

/// Bytes that tell all about an ADTS frame, and the length of a header without checksum.
constexpr std::size_t AdtsHeaderSize = 7;
/// Length of a header with checksum.
constexpr std::size_t AdtsHeaderSizeWithCrc = 9;
/// A frame states its length, header included, in 13 bits.
constexpr std::size_t AdtsLongestFrame = (1 << 13) - 1;
/// Samples of each channel in one raw data block of AAC.
constexpr unsigned int AacFrameSamples = 1024;
/// The profile field of AAC LC in a header; also libav's number for it.
constexpr int AacLowComplexity = 1;

/// Table 1.16: the rates in Hz at their index.
inline constexpr std::array<int, 13> AacRates = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                                 22050, 16000, 12000, 11025, 8000,  7350};
/// Those that the sequence header of the wire format can state.
inline constexpr auto DescribableAacRates = std::span(AacRates).first<11>();

struct AdtsHeader {
  int length = 0;     ///< of the header, in bytes: 7 or 9
  int frame = 0;      ///< of header and payload together, in bytes
  int profile = 0;    ///< as in the header: 1 is LC
  int rate = 0;       ///< Hz
  int channels = 0;   ///< count; 0 when the payload itself tells
  int rawBlocks = 1;  ///< raw data blocks in the frame
};

/// [any] Reads the header of 1.A.2.2. Nothing when there are fewer than seven bytes or they are no
/// ADTS header.
NIMBO_API std::optional<AdtsHeader> ParseAdts(std::span<const unsigned char> bytes);

/// [any] 1.A.3.2: the header in front of an AAC LC frame of `frameBytes` raw bytes. The rate must
/// have an index, the channels be 1 or 2 and the frame short enough for AdtsLongestFrame.
NIMBO_API std::array<unsigned char, AdtsHeaderSize> MakeAdtsHeader(int rate, int channels,
                                                                   std::size_t frameBytes);

/// [any] The index of a describable rate, -1 for any other.
NIMBO_API int AacRateIndex(int rate);
/// [any] The lowest describable rate that is not below `rate`; else the highest.
NIMBO_API int NearestAacRate(int rate);
/// [any] All of them as text, for messages.
NIMBO_API std::string AacRateList();

}  // namespace nimbo::capture
