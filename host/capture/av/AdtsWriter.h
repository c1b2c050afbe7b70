#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "host/capture/Adts.h"

namespace nimbo::capture::av {

/// An ADTS frame states its length, header included, in 13 bits.
constexpr std::size_t AdtsLongestFrame = (1 << 13) - 1;
/// The profile field of AAC LC in an ADTS header; also libav's number for it.
constexpr int AacLowComplexity = 1;

/// The rates in Hz that the sequence header of the wire format can state, at their index.
constexpr std::array<int, 11> AacRates = {96000, 88200, 64000, 48000, 44100, 32000,
                                          24000, 22050, 16000, 12000, 11025};

/// The index of `rate`, -1 for a rate that cannot be stated.
int AacRateIndex(int rate);
/// The lowest rate that can be stated and is not below `rate`; else the highest.
int NearestAacRate(int rate);
/// All of them as text, for messages.
std::string AacRateList();

/// ISO/IEC 14496-3, 1.A.3.2: the header in front of an AAC LC frame of `frameBytes` raw bytes. The
/// rate must have an index, the channels be 1 or 2 and the frame short enough for AdtsLongestFrame.
std::array<unsigned char, AdtsHeaderSize> MakeAdtsHeader(int rate, int channels,
                                                         std::size_t frameBytes);

}  // namespace nimbo::capture::av
