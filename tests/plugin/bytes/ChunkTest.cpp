#include "plugin/bytes/Chunk.h"

#include <gtest/gtest.h>

#include <numeric>
#include <utility>
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
      std::size_t left = write;
      const auto take = [&](Bytes piece) {
        EXPECT_GT(piece.size, 0u);
        const std::size_t size = std::min(left, piece.size);
        out.insert(out.end(), piece.data, piece.data + size);
        left -= size;
      };
      while (message.Next(room, take) > 0) message.Take(write - std::exchange(left, write));
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
