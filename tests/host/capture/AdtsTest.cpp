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
  bytes[3] = 0x40;  // mono
  bytes[6] = 0xFE;  // three raw data blocks
  AdtsHeader header;
  ASSERT_TRUE(ParseAdts(bytes.data(), bytes.size(), header));
  EXPECT_EQ(header.length, 9);
  EXPECT_EQ(header.rate, 24000);
  EXPECT_EQ(header.channels, 1);
  EXPECT_EQ(header.rawBlocks, 3);
}

TEST(AdtsTest, ADamagedOrCutHeaderIsRefused) {
  const std::pair<std::size_t, unsigned char> damages[] = {
      {0, 0xFE}, {1, 0xE1}, {1, 0xF3}, {2, 0x74}, {4, 0x00}};
  for (const auto& [at, value] : damages) {
    test::Bytes bytes = Stereo;
    bytes[4] = 0x01;  // 9 bytes and the lowest bits of byte 5
    bytes[at] = value;
    AdtsHeader header;
    EXPECT_FALSE(ParseAdts(bytes.data(), bytes.size(), header)) << at;
    EXPECT_EQ(header.frame, 0);
  }
  for (std::size_t size = 0; size < AdtsHeaderSize; ++size) {
    const std::unique_ptr<unsigned char[]> exact(new unsigned char[size]);
    std::copy_n(Stereo.begin(), size, exact.get());
    AdtsHeader header;
    EXPECT_FALSE(ParseAdts(exact.get(), size, header)) << size;
  }
}

}  // namespace
}  // namespace nimbo::capture
