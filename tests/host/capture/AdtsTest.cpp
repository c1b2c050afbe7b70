#include "host/capture/Adts.h"

#include <gtest/gtest.h>

#include "tests/support/Bytes.h"

namespace nimbo::capture {
namespace {

// Made with an encoder: AAC LC, 44,100 Hz, stereo, no checksum, 345 bytes.
const test::Bytes Stereo = {0xFF, 0xF1, 0x50, 0x80, 0x2B, 0x3F, 0xFC};

TEST(AdtsTest, TheFieldsOfAHeaderAreRead) {
  AdtsHeader header;
  ASSERT_TRUE(ParseAdts(Stereo.data(), Stereo.size(), header));
  EXPECT_EQ(header.length, 7);
  EXPECT_EQ(header.frame, 345);
  EXPECT_EQ(header.profile, 1);
  EXPECT_EQ(header.rate, 44100);
  EXPECT_EQ(header.channels, 2);
  EXPECT_EQ(header.rawBlocks, 1);
}

TEST(AdtsTest, AChecksumMakesTheHeaderNineBytesLong) {
  test::Bytes bytes = Stereo;
  bytes[1] = 0xF0;
  bytes[2] = 0x58;  // LC, 24,000 Hz
  bytes[3] = 0x40;  // mono
  bytes[6] = 0xFE;  // three raw data blocks
  AdtsHeader header;
  ASSERT_TRUE(ParseAdts(bytes.data(), bytes.size(), header));
  EXPECT_EQ(header.length, 9);
  EXPECT_EQ(header.rate, 24000);
  EXPECT_EQ(header.channels, 1);
  EXPECT_EQ(header.rawBlocks, 3);
}

struct Damage {
  const char* name;
  std::size_t byte;
  unsigned char value;
};

class DamagedAdtsTest : public testing::TestWithParam<Damage> {};

TEST_P(DamagedAdtsTest, IsRefusedAndLeavesTheHeaderAlone) {
  test::Bytes bytes = Stereo;
  bytes[4] = 0x01;  // 9 bytes and the lowest bits of byte 5
  bytes[GetParam().byte] = GetParam().value;
  AdtsHeader header;
  EXPECT_FALSE(ParseAdts(bytes.data(), bytes.size(), header));
  EXPECT_EQ(header.frame, 0);
}

INSTANTIATE_TEST_SUITE_P(Fields, DamagedAdtsTest,
                         testing::Values(Damage{"Syncword", 0, 0xFE}, Damage{"SyncEnd", 1, 0xE1},
                                         Damage{"Layer", 1, 0xF3}, Damage{"Rate", 2, 0x74},
                                         Damage{"ShorterThanItsHeader", 4, 0x00}),
                         [](const auto& damage) { return damage.param.name; });

TEST(AdtsTest, FewerThanSevenBytesAreNoHeader) {
  AdtsHeader header;
  for (std::size_t size = 0; size < AdtsHeaderSize; ++size) {
    EXPECT_FALSE(
        ParseAdts(test::Bytes(Stereo.begin(), Stereo.begin() + static_cast<long>(size)).data(),
                  size, header));
  }
}

}  // namespace
}  // namespace nimbo::capture
