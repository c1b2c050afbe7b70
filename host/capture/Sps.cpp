#include "host/capture/Sps.h"

#include <algorithm>
#include <numeric>

#include "host/capture/Monotonic.h"

namespace nimbo::capture {

namespace {

constexpr unsigned int MacroblockSize = 16;
constexpr unsigned int LargestSide = 16384;  ///< pixels; level 6.2 allows 16,880 at most
constexpr unsigned int MaxSpsIds = 32;
constexpr unsigned int MaxBitDepthOffset = 6;
constexpr unsigned int MaxPocCycle = 255;
constexpr unsigned int ExtendedAspectRatio = 255;
constexpr unsigned int Chroma420 = 1;  ///< 0 is monochrome, which is cropped by single samples
constexpr unsigned int Chroma422 = 2;
constexpr unsigned int Chroma444 = 3;
constexpr unsigned char ProfilesWithChroma[] = {100, 110, 122, 244, 44,  83, 86,
                                                118, 128, 138, 139, 134, 135};

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
  if (bits.Unsigned() > MaxBitDepthOffset) return false;  // luma
  if (bits.Unsigned() > MaxBitDepthOffset) return false;  // chroma
  bits.Bit();                                             // qpprime_y_zero_transform_bypass_flag
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
  if (cycle > MaxPocCycle) return false;
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

std::optional<SpsInfo> ParseSps(ByteSpan nal) {
  if (nal.empty() || NalUnit{nal}.Type() != NalType::Sps) return std::nullopt;
  BitReader bits(nal.subspan(1));
  const std::uint32_t profile = bits.Bits(8);
  bits.Bits(16);  // constraint flags, level
  if (bits.Unsigned() >= MaxSpsIds) return std::nullopt;
  unsigned int chroma = Chroma420;
  bool separate_planes = false;
  if (std::ranges::find(ProfilesWithChroma, profile) != std::end(ProfilesWithChroma) &&
      !ReadChroma(bits, chroma, separate_planes)) {
    return std::nullopt;
  }
  bits.Unsigned();  // log2_max_frame_num_minus4
  if (!SkipPictureOrder(bits)) return std::nullopt;
  bits.Unsigned();  // max_num_ref_frames
  bits.Bit();       // gaps_in_frame_num_value_allowed_flag
  const std::uint32_t columns = bits.Unsigned();
  const std::uint32_t rows = bits.Unsigned();
  constexpr std::uint32_t MaxMacroblocks = LargestSide / MacroblockSize;
  if (columns >= MaxMacroblocks || rows >= MaxMacroblocks) return std::nullopt;
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
    if (!Crop(width, left, right, x) || !Crop(height, top, bottom, y * fields)) {
      return std::nullopt;
    }
  }
  const bool has_vui = bits.Flag();
  if (bits.Failed()) return std::nullopt;
  return SpsInfo{.width = static_cast<int>(width),
                 .height = static_cast<int>(height),
                 .rate = has_vui ? ReadVuiRate(bits) : FrameRate{}};
}

namespace {

// Within these limits no intermediate result of TimeOf leaves 64 bits.
constexpr std::uint32_t MaxFrames = std::uint32_t{1} << 20;
constexpr std::uint32_t MaxSeconds = std::uint32_t{1} << 12;

}  // namespace

FrameRate Reduced(std::uint32_t frames, std::uint32_t seconds) {
  const std::uint32_t divisor = std::gcd(frames, seconds);
  if (divisor == 0) return {};
  frames /= divisor;
  seconds /= divisor;
  while (frames > MaxFrames || seconds > MaxSeconds) {
    frames /= 2;
    seconds /= 2;
  }
  if (frames == 0 || seconds == 0) return {};
  return {frames, seconds};
}

std::int64_t TimeOf(std::uint64_t index, const FrameRate& rate) {
  const auto whole = static_cast<std::int64_t>(index / rate.frames);
  const auto rest = static_cast<std::int64_t>(index % rate.frames);
  const std::int64_t period = NsPerSecond * rate.seconds;
  return whole * period + rest * period / rate.frames;
}

}  // namespace nimbo::capture
