#include "host/capture/av/AdtsWriter.h"

#include <algorithm>
#include <cassert>

namespace nimbo::capture::av {

namespace {

constexpr unsigned Sync = 0xFFF;
/// Says of the decoder's buffer that the bit rate is variable.
constexpr unsigned VariableRate = 0x7FF;

}  // namespace

int AacRateIndex(int rate) {
  const auto found = std::find(AacRates.begin(), AacRates.end(), rate);
  return found == AacRates.end() ? -1 : static_cast<int>(found - AacRates.begin());
}

int NearestAacRate(int rate) {
  // From the lowest rate upwards.
  const auto found = std::find_if(AacRates.rbegin(), AacRates.rend(),
                                  [rate](int candidate) { return candidate >= rate; });
  return found == AacRates.rend() ? AacRates.front() : *found;
}

std::string AacRateList() {
  std::string list;
  for (const int rate : AacRates) list += (list.empty() ? "" : ", ") + std::to_string(rate);
  return list;
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

}  // namespace nimbo::capture::av
