#include "host/capture/Sps.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "tests/support/Bytes.h"

namespace nimbo::capture {
namespace {

using test::Bytes;

Bytes FromHex(const std::string& text) {
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoi(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

/// Parses from memory of exactly the right size, so that the address sanitizer sees every step
/// outside it.
std::optional<SpsInfo> Parse(const Bytes& nal) {
  const std::unique_ptr<unsigned char[]> exact(new unsigned char[nal.size()]);
  std::copy(nal.begin(), nal.end(), exact.get());
  return ParseSps({exact.get(), nal.size()});
}

struct Encoded {
  const char* name;
  const char* hex;
  int width, height;
  std::uint32_t frames, seconds;
};

class EncodedSpsTest : public testing::TestWithParam<Encoded> {};

// Made with x264.
TEST_P(EncodedSpsTest, SizeAndRateAreRead) {
  const auto info = Parse(FromHex(GetParam().hex));
  ASSERT_TRUE(info);
  EXPECT_EQ(info->width, GetParam().width);
  EXPECT_EQ(info->height, GetParam().height);
  EXPECT_EQ(info->rate.frames, GetParam().frames);
  EXPECT_EQ(info->rate.seconds, GetParam().seconds);
}

/// A piece that was cut off is refused, or, inside the VUI, read without its rate.
TEST_P(EncodedSpsTest, EveryTruncationIsSurvived) {
  const Bytes whole = FromHex(GetParam().hex);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const auto info =
        Parse(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    if (!info) continue;
    EXPECT_EQ(info->width, GetParam().width);
    EXPECT_EQ(info->height, GetParam().height);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Pictures, EncodedSpsTest,
    testing::Values(
        Encoded{"CroppedBaseline", "6742c028d900780227e5c044000003000400000300f03c60c920", 1920,
                1080, 30, 1},
        Encoded{"InterlacedNtsc", "6764001facd940d87bcde022000007d20001d4c03e2c5b2c", 854, 480,
                30000, 1001},
        Encoded{"FullChroma", "67f4000a919b28e4f1f1f808800000030080000019078912cb", 98, 50, 25, 1},
        Encoded{"Monochrome",
                "676400"
                "0cf36505421e3e3f016c80000003008000000f078a14cb",
                322, 242, 15, 1},
        Encoded{"HalfChroma", "677a001fbcd940a02ff89c0440000003004000001e03c60c6580", 640, 360, 60,
                1},
        Encoded{"ColoursAndAspect", "6764000cacd94141fb01a701020240000003004000000503c50a6580", 320,
                240, 10, 1},
        // Written by hand.
        Encoded{"ScalingLists", "6764001eada4924924924902115a0507e4", 320, 240, 0, 1},
        Encoded{"PictureOrderOfTypeOne", "6742001ed0c72264423c80", 64, 48, 0, 1}),
    [](const auto& encoded) { return encoded.param.name; });

TEST(SpsTest, ValuesThatAreNotAllowedAreRefused) {
  const std::pair<const char*, const char*> cases[] = {
      {"too wide", "6742001eda001f405640"},
      {"too high", "6742001eda0a0000030001ffffffff90"},
      {"no such chroma format", "6764001e96d050ac80"},
      {"nothing left after cropping", "6742001eda7e2740"},
      {"a PPS", "68ce3c80"}};
  for (const auto& [why, hex] : cases) {
    EXPECT_FALSE(Parse(FromHex(hex))) << why;
  }
}

TEST(SpsTest, GarbageIsSurvived) {
  std::mt19937 random(1);
  for (int round = 0; round < 20000; ++round) {
    Bytes nal(random() % 40);
    for (unsigned char& byte : nal) {
      byte = static_cast<unsigned char>(random() % 3 == 0 ? 0 : random());
    }
    if (!nal.empty()) nal[0] = 0x67;
    const auto info = Parse(nal);
    if (!info) continue;
    EXPECT_GT(info->width, 0);
    EXPECT_GT(info->height, 0);
  }
}

TEST(FrameRateTest, TimesDoNotDriftOverMonths) {
  const FrameRate ntsc = Reduced(60000, 2002);
  EXPECT_EQ(ntsc.frames, 30000U);
  EXPECT_EQ(ntsc.seconds, 1001U);
  constexpr std::uint64_t Hundredday = 30000ULL * 8640;
  EXPECT_EQ(TimeOf(Hundredday, ntsc), 1001LL * 8640 * 1000000000);
  EXPECT_EQ(TimeOf(1, {30, 1}), 33333333);
  EXPECT_EQ(TimeOf(44100, {44100, 1024}), 1024LL * 1000000000);
  const FrameRate odd = Reduced(0xFFFFFFFF, 0xFFFFFFFE);
  EXPECT_GT(TimeOf(0xFFFFFFFF, odd), 0) << "no overflow at extreme terms";
}

}  // namespace
}  // namespace nimbo::capture
