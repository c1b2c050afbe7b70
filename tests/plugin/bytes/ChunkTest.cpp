#include "plugin/bytes/Chunk.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace nimbo::plugin {
namespace {

using Octets = std::vector<unsigned char>;

struct ChunkCase {
  const char* what;
  std::uint32_t timestamp;
  std::size_t head, tail, chunk;
  std::size_t headers;  ///< bytes that are not of the body
};

/// The message as whoever reads it wants it, written field by field.
Octets Expected(const ChunkCase& of, const Octets& body) {
  const bool extended = of.timestamp >= 0xFFFFFF;
  const auto append = [](Octets& out, std::uint32_t value, int bytes) {
    while (bytes-- > 0) out.push_back(static_cast<unsigned char>(value >> 8 * bytes));
  };
  Octets out = {0x04};  // full header, chunk stream 4
  append(out, extended ? 0xFFFFFF : of.timestamp, 3);
  append(out, static_cast<std::uint32_t>(body.size()), 3);
  append(out, 0x09, 1);        // video
  append(out, 0x78563412, 4);  // the stream id 0x12345678, little-endian
  if (extended) append(out, of.timestamp, 4);
  for (std::size_t at = 0; at < body.size(); ++at) {
    if (at > 0 && at % of.chunk == 0) {
      out.push_back(0xC4);  // no header, chunk stream 4
      if (extended) append(out, of.timestamp, 4);
    }
    out.push_back(body[at]);
  }
  return out;
}

class Chunks : public testing::TestWithParam<ChunkCase> {};

// Whatever number of bytes a write takes, and however many pieces it is given.
TEST_P(Chunks, AreTheSameBytesHoweverTheyAreTaken) {
  const ChunkCase& of = GetParam();
  Octets body(of.head + of.tail);
  std::iota(body.begin(), body.end(), static_cast<unsigned char>(1));
  const Octets expected = Expected(of, body);
  EXPECT_EQ(expected.size() - body.size(), of.headers);
  for (const std::size_t write : {1UL, 2UL, 3UL, 7UL, 1000000UL}) {
    for (const std::size_t room : {1UL, 2UL, 256UL}) {
      ChunkedMessage message({4, 9, of.timestamp, body.size(), 0x12345678}, of.chunk,
                             {body.data(), of.head}, {body.data() + of.head, of.tail});
      Octets out;
      Bytes pieces[256];
      while (const std::size_t count = message.Next(pieces, room)) {
        std::size_t left = write;
        for (std::size_t i = 0; i < count && left > 0; ++i) {
          const std::size_t size = std::min(left, pieces[i].size);
          ASSERT_GT(size, 0u);
          out.insert(out.end(), pieces[i].data, pieces[i].data + size);
          left -= size;
        }
        message.Take(write - left);
      }
      ASSERT_EQ(out, expected) << "writes of " << write << " bytes, " << room << " pieces";
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Messages, Chunks,
                         testing::Values(ChunkCase{"OneChunk", 40, 9, 20, 128, 12},
                                         ChunkCase{"ExactlyOneChunk", 40, 9, 119, 128, 12},
                                         ChunkCase{"OneByteMoreThanAChunk", 40, 9, 120, 128, 13},
                                         ChunkCase{"HeadAsLongAsAChunk", 40, 9, 18, 9, 14},
                                         ChunkCase{"HeadLongerThanAChunk", 40, 9, 4, 4, 15},
                                         ChunkCase{"NoHead", 0, 0, 10, 4, 14},
                                         ChunkCase{"NoTail", 0, 10, 0, 4, 14},
                                         ChunkCase{"NoBody", 0, 0, 0, 128, 12},
                                         ChunkCase{"LastShortTime", 0xFFFFFE, 9, 20, 16, 13},
                                         ChunkCase{"FirstExtendedTime", 0xFFFFFF, 9, 20, 16, 21},
                                         ChunkCase{"LastTime", 0xFFFFFFFF, 9, 20, 16, 21}),
                         [](const auto& message) { return std::string(message.param.what); });

}  // namespace
}  // namespace nimbo::plugin
