#pragma once

#include <cstddef>

#include "nimbo/base/api.h"

namespace nimbo::capture {

/// Bytes that tell all about an ADTS frame, and the length of a header without checksum.
constexpr std::size_t AdtsHeaderSize = 7;
/// Length of a header with checksum.
constexpr std::size_t AdtsHeaderSizeWithCrc = 9;
/// Samples of each channel in one raw data block of AAC.
constexpr unsigned int AacFrameSamples = 1024;

struct AdtsHeader {
  int length = 0;     ///< of the header, in bytes: 7 or 9
  int frame = 0;      ///< of header and payload together, in bytes
  int profile = 0;    ///< as in the header: 1 is LC
  int rate = 0;       ///< Hz
  int channels = 0;   ///< count; 0 when the payload itself tells
  int rawBlocks = 1;  ///< raw data blocks in the frame
};

/// [any] Reads the header of ISO/IEC 14496-3, 1.A.2.2, at `data`. False, with `header` untouched,
/// when there are fewer than seven bytes or they are no ADTS header.
NIMBO_API bool ParseAdts(const unsigned char* data, std::size_t size, AdtsHeader& header);

}  // namespace nimbo::capture
