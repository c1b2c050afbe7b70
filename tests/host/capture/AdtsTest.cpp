#include "host/capture/Adts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "tests/support/Bytes.h"

namespace nimbo::capture {
namespace {

// Made with an encoder: AAC LC, 44,100 Hz, stereo, no checksum, 345 bytes.
const test::Bytes Stereo = {0xFF, 0xF1, 0x50, 0x80, 0x2B, 0x3F, 0xFC};

TEST(AdtsTest, AChecksumMakesTheHeaderNineBytesLong) {
  test::Bytes bytes = Stereo;
  bytes[1] = 0xF0;
  bytes[2] = 0x58;  // LC, 24,000 Hz
  bytes[3] = 0x43;  // mono; 3 * 2,048 bytes more
  bytes[6] = 0xFE;  // three raw data blocks
  const auto header = ParseAdts(bytes);
  ASSERT_TRUE(header);
  EXPECT_EQ(header->length, 9);
  EXPECT_EQ(header->frame, 345 + 3 * 2048);
  EXPECT_EQ(header->profile, 1);
  EXPECT_EQ(header->rate, 24000);
  EXPECT_EQ(header->channels, 1);
  EXPECT_EQ(header->rawBlocks, 3);
}

// ISO/IEC 14496-3, tables 1.16 and 1.17.
TEST(AdtsTest, RatesAndChannelsAreThoseOfTheirIndices) {
  const int rates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                       22050, 16000, 12000, 11025, 8000,  7350};
  const int channels[] = {0, 1, 2, 3, 4, 5, 6, 8};
  for (std::size_t rate = 0; rate < std::size(rates); ++rate) {
    const std::size_t configuration = rate % std::size(channels);
    test::Bytes bytes = Stereo;
    bytes[2] = static_cast<unsigned char>(0xC0 | rate << 2 | configuration >> 2);
    bytes[3] = static_cast<unsigned char>((configuration & 3) << 6);
    const auto header = ParseAdts(bytes);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->rate, rates[rate]);
    EXPECT_EQ(header->channels, channels[configuration]);
    EXPECT_EQ(header->profile, 3);
  }
}

TEST(AdtsTest, ADamagedOrCutHeaderIsRefused) {
  const std::pair<std::size_t, unsigned char> damages[] = {{0, 0xFE}, {1, 0xE1}, {1, 0xF3},
                                                           {1, 0xF0}, {2, 0x74}, {4, 0x00}};
  for (const auto& [at, value] : damages) {
    test::Bytes bytes = Stereo;
    bytes[4] = 0x01;  // 9 bytes and the lowest bits of byte 5
    bytes[at] = value;
    EXPECT_FALSE(ParseAdts(bytes)) << at;
  }
  for (std::size_t size = 0; size < AdtsHeaderSize; ++size) {
    const std::unique_ptr<unsigned char[]> exact(new unsigned char[size]);
    std::copy_n(Stereo.begin(), size, exact.get());
    EXPECT_FALSE(ParseAdts({exact.get(), size})) << size;
  }
}

}  // namespace
}  // namespace nimbo::capture
