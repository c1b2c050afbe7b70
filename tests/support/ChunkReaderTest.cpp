#include "tests/support/ChunkReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nimbo::test {
namespace {

using testing::ElementsAre;

/// Three chunk streams whose chunks alternate, with every header format.
const Bytes Mixed = {
    0x02, 0,    0,    0,    0, 0, 4, 1, 0,    0, 0, 0, 0,    0, 0, 2,  // Set Chunk Size to 2
    0x04, 0,    0,    10,   0, 0, 3, 9, 1,    0, 0, 0, 1,    2,        // video at 10 ms, first part
    0x45, 0xFF, 0xFF, 0xFF, 0, 0, 1, 8, 0x01, 0, 0, 5, 7,              // audio, extended delta
    0xC4, 3,                                                           // video, rest
    0x84, 0,    0,    20,   4, 5,                                      // video 20 ms later
    0xC4, 6,                                                           // its rest
    0x00, 200,  0,    0,    1, 0, 0, 1, 18,   0, 0, 0, 0x02, 9,        // chunk stream 264
    0xC4, 7,    8,    0xC4, 9,                                         // another 20 ms later
};

struct Short {
  unsigned chunkStream;
  std::uint32_t time;
  std::uint32_t stream;
  Bytes body;
  std::vector<std::uint8_t> formats;
  bool operator==(const Short& other) const {
    return chunkStream == other.chunkStream && time == other.time && stream == other.stream &&
           body == other.body && formats == other.formats;
  }
};

TEST(ChunkReader, PutsAlternatingMessagesTogetherHoweverTheyCome) {
  for (std::size_t piece = 1; piece <= Mixed.size(); ++piece) {
    ChunkReader reader;
    std::vector<Short> found;
    for (std::size_t at = 0; at < Mixed.size(); at += piece) {
      ASSERT_TRUE(reader.Feed(&Mixed[at], std::min(piece, Mixed.size() - at), [&](Message& m) {
        found.push_back({m.chunkStream, m.time, m.stream, m.body, m.formats});
      }));
    }
    EXPECT_EQ(reader.ChunkSize(), 2u);
    EXPECT_THAT(
        found,
        ElementsAre(Short{2, 0, 0, {0, 0, 0, 2}, {0}}, Short{5, 0x01000005, 0, {7}, {1}},
                    Short{4, 10, 1, {1, 2, 3}, {0, 3}}, Short{4, 30, 1, {4, 5, 6}, {2, 3}},
                    Short{264, 1, 0x02000000, {9}, {0}}, Short{4, 50, 1, {7, 8, 9}, {3, 3}}));
  }
}

TEST(ChunkReader, RefusesWhatNoPublisherMaySend) {
  const Bytes cases[] = {
      {0x02, 0, 0, 0, 0, 0, 4, 1, 0, 0, 0, 0, 0, 0, 0, 0},  // chunk size 0
      [] {                                                  // a new message inside another one
        Bytes broken(Mixed.begin(), Mixed.begin() + 30);
        Append(broken, {0x04, 0, 0, 10, 0, 0, 3, 9, 1, 0, 0, 0, 1, 2});
        return broken;
      }(),
      [] {  // a continuation with another extended time stamp
        Bytes broken(Mixed.begin(), Mixed.begin() + 16);
        Append(broken, {0x04, 0xFF, 0xFF, 0xFF, 0, 0, 3, 9, 1, 0, 0, 0, 1, 0, 0, 0, 1, 2});
        Append(broken, {0xC4, 1, 0, 0, 1, 3});
        return broken;
      }(),
  };
  for (const Bytes& broken : cases) {
    ChunkReader reader;
    EXPECT_FALSE(reader.Feed(broken.data(), broken.size(), [](Message&) {}));
    EXPECT_NE(reader.Error(), "");
  }
}

}  // namespace
}  // namespace nimbo::test
