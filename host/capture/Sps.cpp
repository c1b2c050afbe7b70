#include "host/capture/Sps.h"

#include <algorithm>
#include <iterator>
#include <numeric>

namespace nimbo::capture {

namespace {

constexpr unsigned int NalTypeMask = 0x1F;
constexpr unsigned int NalTypeSps = 7;
constexpr unsigned int MacroblockSize = 16;
constexpr unsigned int LargestSide = 16384;  ///< pixels; level 6.2 allows 16,880 at most
constexpr unsigned int MostSpsIds = 32;
constexpr unsigned int MostBitDepthOffset = 6;
constexpr unsigned int MostPocCycle = 255;
constexpr unsigned int ExtendedAspectRatio = 255;
constexpr unsigned int Chroma420 = 1;  ///< 0 is monochrome, which is cropped by single samples
constexpr unsigned int Chroma422 = 2;
constexpr unsigned int Chroma444 = 3;
constexpr unsigned char ProfilesWithChroma[] = {100, 110, 122, 244, 44,  83, 86,
                                                118, 128, 138, 139, 134, 135};

/// Reads the bits of a NAL unit's payload, passing over emulation prevention bytes (7.3.1). What is
/// read behind the end is zero, and Failed() from then on.
class BitReader {
 public:
  BitReader(const unsigned char* data, std::size_t size) : _data(data), _size(size) {}

  bool Failed() const { return _failed; }

  unsigned int Bit() {
    if (_bits == 0 && !NextByte()) return 0;
    --_bits;
    return (_current >> _bits) & 1U;
  }

  std::uint32_t Bits(int count) {
    std::uint32_t value = 0;
    for (; count > 0; --count) value = (value << 1) | Bit();
    return value;
  }

  /// ue(v) of 9.1. A code that is longer than any allowed value's counts as failed.
  std::uint32_t Unsigned() {
    constexpr int LongestPrefix = 31;
    int zeros = 0;
    while (!_failed && Bit() == 0) {
      if (++zeros > LongestPrefix) _failed = true;
    }
    return _failed ? 0 : Bits(zeros) + (std::uint32_t{1} << zeros) - 1;
  }

  /// se(v) of 9.1.1.
  std::int32_t Signed() {
    const std::uint32_t code = Unsigned();
    const auto magnitude = static_cast<std::int32_t>((code >> 1) + (code & 1U));
    return (code & 1U) != 0 ? magnitude : -magnitude;
  }

  bool Flag() { return Bit() != 0; }

 private:
  bool NextByte() {
    constexpr unsigned char EmulationPrevention = 3;
    if (_zeros >= 2 && _position < _size && _data[_position] == EmulationPrevention) {
      ++_position;
      _zeros = 0;
    }
    if (_position >= _size) {
      _failed = true;
      return false;
    }
    _current = _data[_position++];
    _zeros = _current == 0 ? _zeros + 1 : 0;
    _bits = 8;
    return true;
  }

  const unsigned char* _data;
  std::size_t _size;
  std::size_t _position = 0;
  unsigned int _current = 0;
  int _bits = 0;   ///< of the current byte that were not read yet
  int _zeros = 0;  ///< zero bytes in a row before the next byte
  bool _failed = false;
};

void SkipScalingList(BitReader& bits, int size) {
  constexpr int FirstScale = 8;
  constexpr int ScaleRange = 256;
  int last = FirstScale;
  int next = FirstScale;
  for (int i = 0; i < size && !bits.Failed(); ++i) {
    if (next != 0) {
      next = (last + bits.Signed() % ScaleRange + ScaleRange) % ScaleRange;
    }
    if (next != 0) last = next;
  }
}

/// The fields that only the profiles with a choice of chroma formats have.
bool ReadChroma(BitReader& bits, unsigned int& chroma, bool& separatePlanes) {
  chroma = bits.Unsigned();
  if (chroma > Chroma444) return false;
  if (chroma == Chroma444) separatePlanes = bits.Flag();
  if (bits.Unsigned() > MostBitDepthOffset) return false;  // luma
  if (bits.Unsigned() > MostBitDepthOffset) return false;  // chroma
  bits.Bit();                                              // qpprime_y_zero_transform_bypass_flag
  if (!bits.Flag()) return true;
  constexpr int SmallLists = 6;
  constexpr int SmallListSize = 16;
  constexpr int LargeListSize = 64;
  const int lists = chroma == Chroma444 ? 12 : 8;
  for (int i = 0; i < lists; ++i) {
    if (bits.Flag()) SkipScalingList(bits, i < SmallLists ? SmallListSize : LargeListSize);
  }
  return true;
}

bool SkipPictureOrder(BitReader& bits) {
  const std::uint32_t type = bits.Unsigned();
  if (type > 2) return false;
  if (type == 0) bits.Unsigned();  // log2_max_pic_order_cnt_lsb_minus4
  if (type != 1) return true;
  bits.Bit();     // delta_pic_order_always_zero_flag
  bits.Signed();  // offset_for_non_ref_pic
  bits.Signed();  // offset_for_top_to_bottom_field
  const std::uint32_t cycle = bits.Unsigned();
  if (cycle > MostPocCycle) return false;
  for (std::uint32_t i = 0; i < cycle; ++i) bits.Signed();
  return true;
}

/// E.1.1, up to the timing.
FrameRate ReadVuiRate(BitReader& bits) {
  if (bits.Flag() && bits.Bits(8) == ExtendedAspectRatio) bits.Bits(32);
  if (bits.Flag()) bits.Bit();  // overscan
  if (bits.Flag()) {            // video signal type
    bits.Bits(4);
    if (bits.Flag()) bits.Bits(24);  // colour description
  }
  if (bits.Flag()) {  // chroma sample locations
    bits.Unsigned();
    bits.Unsigned();
  }
  if (!bits.Flag()) return {};
  const std::uint32_t units = bits.Bits(32);
  const std::uint32_t scale = bits.Bits(32);
  // A frame lasts two ticks (E.2.1).
  if (bits.Failed() || units == 0 || scale < 2) return {};
  return scale % 2 == 0 ? Reduced(scale / 2, units)
                        : Reduced(scale, units > UINT32_MAX / 2 ? UINT32_MAX : units * 2);
}

/// Takes the cropping away from one side. False when nothing is left of it.
bool Crop(unsigned int& side, std::uint32_t first, std::uint32_t second, unsigned int unit) {
  const std::uint64_t cropped = (std::uint64_t{first} + second) * unit;
  if (cropped >= side) return false;
  side -= static_cast<unsigned int>(cropped);
  return true;
}

}  // namespace

bool ParseSps(const unsigned char* nal, std::size_t size, SpsInfo& info) {
  if (size == 0 || (nal[0] & NalTypeMask) != NalTypeSps) return false;
  BitReader bits(nal + 1, size - 1);
  const std::uint32_t profile = bits.Bits(8);
  bits.Bits(16);  // constraint flags, level
  if (bits.Unsigned() >= MostSpsIds) return false;
  unsigned int chroma = Chroma420;
  bool separate_planes = false;
  if (std::find(std::begin(ProfilesWithChroma), std::end(ProfilesWithChroma), profile) !=
          std::end(ProfilesWithChroma) &&
      !ReadChroma(bits, chroma, separate_planes)) {
    return false;
  }
  bits.Unsigned();  // log2_max_frame_num_minus4
  if (!SkipPictureOrder(bits)) return false;
  bits.Unsigned();  // max_num_ref_frames
  bits.Bit();       // gaps_in_frame_num_value_allowed_flag
  const std::uint32_t columns = bits.Unsigned();
  const std::uint32_t rows = bits.Unsigned();
  constexpr std::uint32_t MostMacroblocks = LargestSide / MacroblockSize;
  if (columns >= MostMacroblocks || rows >= MostMacroblocks) return false;
  const bool frames_only = bits.Flag();
  const unsigned int fields = frames_only ? 1 : 2;
  if (!frames_only) bits.Bit();  // mb_adaptive_frame_field_flag
  bits.Bit();                    // direct_8x8_inference_flag
  unsigned int width = (columns + 1) * MacroblockSize;
  unsigned int height = (rows + 1) * MacroblockSize * fields;
  if (bits.Flag()) {
    // Table 6-1: how many luma samples a cropping unit stands for.
    const bool subsampled = !separate_planes;
    const unsigned int x = subsampled && (chroma == Chroma420 || chroma == Chroma422) ? 2 : 1;
    const unsigned int y = subsampled && chroma == Chroma420 ? 2 : 1;
    const std::uint32_t left = bits.Unsigned();
    const std::uint32_t right = bits.Unsigned();
    const std::uint32_t top = bits.Unsigned();
    const std::uint32_t bottom = bits.Unsigned();
    if (!Crop(width, left, right, x) || !Crop(height, top, bottom, y * fields)) return false;
  }
  const bool has_vui = bits.Flag();
  if (bits.Failed()) return false;
  info.width = static_cast<int>(width);
  info.height = static_cast<int>(height);
  info.rate = has_vui ? ReadVuiRate(bits) : FrameRate{};
  return true;
}

namespace {

// Within these limits no intermediate result of TimeOf leaves 64 bits.
constexpr std::uint32_t MostFrames = std::uint32_t{1} << 20;
constexpr std::uint32_t MostSeconds = std::uint32_t{1} << 12;
constexpr std::int64_t NanosecondsPerSecond = 1'000'000'000;

}  // namespace

FrameRate Reduced(std::uint32_t frames, std::uint32_t seconds) {
  const std::uint32_t divisor = std::gcd(frames, seconds);
  if (divisor == 0) return {};
  frames /= divisor;
  seconds /= divisor;
  while (frames > MostFrames || seconds > MostSeconds) {
    frames /= 2;
    seconds /= 2;
  }
  if (frames == 0 || seconds == 0) return {};
  return {frames, seconds};
}

std::int64_t TimeOf(std::uint64_t index, const FrameRate& rate) {
  const auto whole = static_cast<std::int64_t>(index / rate.frames);
  const auto rest = static_cast<std::int64_t>(index % rate.frames);
  const std::int64_t period = NanosecondsPerSecond * rate.seconds;
  return whole * period + rest * period / rate.frames;
}

}  // namespace nimbo::capture
