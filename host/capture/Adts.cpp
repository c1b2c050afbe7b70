#include "host/capture/Adts.h"

#include <iterator>

namespace nimbo::capture {

namespace {

// ISO/IEC 14496-3, table 1.16.
constexpr int Rates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                         22050, 16000, 12000, 11025, 8000,  7350};
// Table 1.17, the channel configurations that a header can tell.
constexpr int Channels[] = {0, 1, 2, 3, 4, 5, 6, 8};

}  // namespace

bool ParseAdts(const unsigned char* data, std::size_t size, AdtsHeader& header) {
  if (size < AdtsHeaderSize) return false;
  // Byte 0, 1: syncword (12 bits), ID (1), layer (2, always 0), protection_absent (1).
  if (data[0] != 0xFF || (data[1] & 0xF6) != 0xF0) return false;
  const bool has_crc = (data[1] & 0x01) == 0;
  // Byte 2, 3: profile (2), sampling_frequency_index (4), private_bit (1), channels (3), ...
  const auto rate = static_cast<std::size_t>((data[2] >> 2) & 0x0F);
  if (rate >= std::size(Rates)) return false;
  const auto channels = static_cast<std::size_t>((data[2] & 0x01) << 2 | data[3] >> 6);
  // Byte 3 to 5: ... aac_frame_length (13), adts_buffer_fullness (11); byte 6: ... blocks (2).
  const int frame = (data[3] & 0x03) << 11 | data[4] << 3 | data[5] >> 5;
  const std::size_t length = has_crc ? AdtsHeaderSizeWithCrc : AdtsHeaderSize;
  if (static_cast<std::size_t>(frame) <= length) return false;
  header.length = static_cast<int>(length);
  header.frame = frame;
  header.profile = data[2] >> 6;
  header.rate = Rates[rate];
  header.channels = Channels[channels];
  header.rawBlocks = (data[6] & 0x03) + 1;
  return true;
}

}  // namespace nimbo::capture
