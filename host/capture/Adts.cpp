#include "host/capture/Adts.h"

#include <algorithm>
#include <cassert>

namespace nimbo::capture {

namespace {

// Table 1.17, the channel configurations that a header can tell.
constexpr int Channels[] = {0, 1, 2, 3, 4, 5, 6, 8};
constexpr unsigned Sync = 0xFFF;
/// Says of the decoder's buffer that the bit rate is variable.
constexpr unsigned VariableRate = 0x7FF;

}  // namespace

std::optional<AdtsHeader> ParseAdts(std::span<const unsigned char> bytes) {
  if (bytes.size() < AdtsHeaderSize) return std::nullopt;
  // Byte 0, 1: syncword (12 bits), ID (1), layer (2, always 0), protection_absent (1).
  if (bytes[0] != 0xFF || (bytes[1] & 0xF6) != 0xF0) return std::nullopt;
  const bool has_crc = (bytes[1] & 0x01) == 0;
  // Byte 2, 3: profile (2), sampling_frequency_index (4), private_bit (1), channels (3), ...
  const auto rate = static_cast<std::size_t>((bytes[2] >> 2) & 0x0F);
  if (rate >= AacRates.size()) return std::nullopt;
  const auto channels = static_cast<std::size_t>((bytes[2] & 0x01) << 2 | bytes[3] >> 6);
  // Byte 3 to 5: ... aac_frame_length (13), adts_buffer_fullness (11); byte 6: ... blocks (2).
  const int frame = (bytes[3] & 0x03) << 11 | bytes[4] << 3 | bytes[5] >> 5;
  const std::size_t length = has_crc ? AdtsHeaderSizeWithCrc : AdtsHeaderSize;
  if (static_cast<std::size_t>(frame) <= length) return std::nullopt;
  return AdtsHeader{.length = static_cast<int>(length),
                    .frame = frame,
                    .profile = bytes[2] >> 6,
                    .rate = AacRates[rate],
                    .channels = Channels[channels],
                    .rawBlocks = (bytes[6] & 0x03) + 1};
}

std::array<unsigned char, AdtsHeaderSize> MakeAdtsHeader(int rate, int channels,
                                                         std::size_t frameBytes) {
  const auto length = static_cast<unsigned>(frameBytes + AdtsHeaderSize);
  assert(AacRateIndex(rate) >= 0 && length <= AdtsLongestFrame);
  struct Field {
    unsigned value;
    int bits;
  };
  const Field fields[] = {
      {Sync, 12},
      {0, 1},  // MPEG-4
      {0, 2},  // layer
      {1, 1},  // no checksum
      {AacLowComplexity, 2},
      {static_cast<unsigned>(AacRateIndex(rate)), 4},
      {0, 1},  // private
      {static_cast<unsigned>(channels), 3},
      {0, 4},  // original, home, two copyright bits
      {length, 13},
      {VariableRate, 11},
      {0, 2},  // one frame
  };
  std::array<unsigned char, AdtsHeaderSize> header = {};
  std::size_t position = 0;
  for (const Field& field : fields) {
    for (int bit = field.bits - 1; bit >= 0; --bit, ++position) {
      if (((field.value >> bit) & 1U) == 0) continue;
      header[position / 8] =
          static_cast<unsigned char>(header[position / 8] | (0x80U >> (position % 8)));
    }
  }
  assert(position == AdtsHeaderSize * 8);
  return header;
}

int AacRateIndex(int rate) {
  const auto found = std::ranges::find(DescribableAacRates, rate);
  return found == DescribableAacRates.end() ? -1
                                            : static_cast<int>(found - DescribableAacRates.begin());
}

int NearestAacRate(int rate) {
  // From the lowest rate upwards.
  const auto found = std::find_if(DescribableAacRates.rbegin(), DescribableAacRates.rend(),
                                  [rate](int candidate) { return candidate >= rate; });
  return found == DescribableAacRates.rend() ? DescribableAacRates.front() : *found;
}

std::string AacRateList() {
  std::string list;
  for (const int rate : DescribableAacRates) {
    list += (list.empty() ? "" : ", ") + std::to_string(rate);
  }
  return list;
}

}  // namespace nimbo::capture
