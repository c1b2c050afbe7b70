#include "plugin/bytes/MessageReader.h"

#include <gtest/gtest.h>

#include <string>

#include "plugin/bytes/Amf0.h"
#include "tests/support/MediaSamples.h"

namespace nimbo::plugin {
namespace {

using Octets = test::Bytes;

struct Stream {
  const char* what;
  Octets bytes;
  std::string read;  ///< "CHANNEL/TYPE/SIZE/BODY" of each message, and what ended the reading
};

/// What is read of a stream that arrives in pieces of `piece` bytes. Bodies are told by their first
/// and last byte; one that was not kept as "-".
std::string Read(const Octets& bytes, std::size_t piece) {
  MessageReader reader;
  std::string read;
  for (std::size_t at = 0; at < bytes.size();) {
    InboundMessage message;
    const auto step = reader.Read({&bytes[at], std::min(piece, bytes.size() - at)}, message);
    at += step.used;
    if (step.outcome == MessageReader::Outcome::Broken) return read + reader.Fault();
    if (step.outcome != MessageReader::Outcome::Message) continue;
    read += std::to_string(message.channel) + "/" + std::to_string(static_cast<int>(message.type)) +
            "/" + std::to_string(message.size) + "/";
    if (message.body)
      read +=
          std::to_string(message.body[0]) + ".." + std::to_string(message.body[message.size - 1]);
    read += message.body ? " " : "- ";
  }
  return read;
}

class Inbound : public testing::TestWithParam<Stream> {};

TEST_P(Inbound, IsReadTheSameHoweverItArrives) {
  for (const std::size_t piece : {1UL, 2UL, 5UL, 1000000UL}) {
    EXPECT_EQ(Read(GetParam().bytes, piece), GetParam().read) << "pieces of " << piece;
  }
}

Octets Join(std::initializer_list<Octets> parts) {
  Octets all;
  for (const Octets& part : parts) test::Append(all, part);
  return all;
}
/// A full header on chunk stream 3: time, size and type.
Octets Header(std::size_t size, unsigned char type = 20, unsigned char time = 0) {
  return {3,
          time,
          time,
          time,
          0,
          static_cast<unsigned char>(size >> 8),
          static_cast<unsigned char>(size),
          type,
          0,
          0,
          0,
          0};
}
Octets Counted(std::size_t size, unsigned char from = 0) {
  Octets body(size);
  for (auto& byte : body) byte = from++;
  return body;
}
const Octets Next = {0xC3};
const Octets Late = {1, 0, 0, 0};  // an extended time stamp

INSTANTIATE_TEST_SUITE_P(
    Streams, Inbound,
    testing::Values(
        Stream{"OneChunk", Join({Header(3), {7, 8, 9}}), "3/20/3/7..9 "},
        Stream{"TwoChunks", Join({Header(130), Counted(128), Next, {128, 129}}),
               "3/20/130/0..129 "},
        Stream{"ExtendedTimeInEveryChunk",
               Join({Header(130, 20, 0xFF), Late, Counted(128), Next, Late, {1, 2}}),
               "3/20/130/0..2 "},
        Stream{"SameHeaderAgain", Join({Header(1), {5}, Next, {6}}), "3/20/1/5..5 3/20/1/6..6 "},
        Stream{"ShorterHeaders",
               Join({Header(1), {5}, {0x43, 0, 0, 1, 0, 0, 2, 4, 1, 2}, {0x83, 0, 0, 1, 3, 4}}),
               "3/20/1/5..5 3/4/2/1..2 3/4/2/3..4 "},
        Stream{"LongChannels",
               Join({{0, 6, 0, 0, 0, 0, 0, 1, 20, 0, 0, 0, 0, 9},
                     {1, 1, 2, 0, 0, 0, 0, 0, 1, 20, 0, 0, 0, 0, 8}}),
               "70/20/1/9..9 577/20/1/8..8 "},
        Stream{
            "Interleaved",
            Join(
                {Header(130), Counted(128), {2, 0, 0, 0, 0, 0, 1, 3, 0, 0, 0, 0, 4}, Next, {1, 2}}),
            "2/3/1/4..4 3/20/130/0..2 "},
        Stream{
            "AnotherChunkSize",
            Join({{2, 0, 0, 0, 0, 0, 4, 1, 0, 0, 0, 0, 0, 0, 0, 2}, Header(3), {1, 2}, Next, {3}}),
            "2/1/4/0..2 3/20/3/1..3 "},
        Stream{"Abandoned",
               Join({Header(130),
                     Counted(128),
                     {2, 0, 0, 0, 0, 0, 4, 2, 0, 0, 0, 0, 0, 0, 0, 3},
                     Header(1),
                     {5}}),
               "2/2/4/0..3 3/20/1/5..5 "},
        Stream{"MediaPassBy", Join({Header(2, 9), {1, 2}, Header(1, 22), {1}}),
               "3/9/2/- 3/22/1/- "},
        Stream{"NothingInside", Join({Header(0, 9), Header(1), {5}}), "3/9/0/- 3/20/1/5..5 "},
        Stream{"NoFirstHeader", {0xC3, 1}, "a chunk without the header that it refers to"},
        Stream{"MessageInsideAnother", Join({Header(130), Counted(128), Header(1)}),
               "a message that begins inside another one"},
        Stream{"NoChunkSize", Join({Header(4, 1), {0, 0, 0, 0}}), "an impossible chunk size"},
        Stream{"NegativeChunkSize", Join({Header(4, 1), {0x80, 0, 0, 1}}),
               "an impossible chunk size"}),
    [](const auto& stream) { return std::string(stream.param.what); });

TEST(Inbound, KeepsNoMoreThanItsBounds) {
  // One byte more than is kept, and one chunk stream more than may be used.
  Octets large = {3, 0, 0, 0, 1, 0, 1, 20, 0, 0, 0, 0};
  for (std::size_t left = MessageReader::MaxKept + 1; left > 0;) {
    const std::size_t chunk = std::min<std::size_t>(left, 128);
    test::Append(large, Octets(chunk));
    if (left -= chunk) large.push_back(0xC3);
  }
  EXPECT_EQ(Read(large, 1000), "3/20/65537/- ");
  Octets many;
  for (unsigned char id = 2; id < 2 + MessageReader::MaxChannels + 1; ++id) {
    test::Append(many, {id, 0, 0, 0, 0, 0, 9, 20, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
  }
  EXPECT_NE(Read(many, 1000).find("too many chunk streams"), std::string::npos);
}

TEST(ServerCommand, IsReadWholeOrNotAtAll) {
  const Octets name = {2, 0, 2, 'o', 'k'};
  const Octets number = {0, 0x40, 0, 0, 0, 0, 0, 0, 0};  // 2.0
  const Octets information = {3, 0,   4,    'c', 'o', 'd', 'e', 2, 0, 1, 'x', 0,
                              1, 'n', 0x0A, 0,   0,   0,   1,   5, 0, 0, 9};
  const Octets whole = Join({name, number, {5}, information});
  ServerCommand command;
  ASSERT_TRUE(ReadCommand({whole.data(), whole.size()}, command));
  EXPECT_EQ(command.name, "ok");
  EXPECT_EQ(command.transaction, 2);
  EXPECT_EQ(command.code, "x");
  // Cut anywhere it is no command, except between two values.
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const bool between = size == 14 || size == 15;
    const Octets cut(whole.begin(), whole.begin() + static_cast<long>(size));  // for the sanitizer
    EXPECT_EQ(ReadCommand({cut.data(), size}, command), between) << size;
  }
  // However well it ends, what is nested too deeply is refused.
  for (const int depth : {8, 9}) {
    Octets nested = Join({name, number});
    for (int i = 0; i < depth; ++i) test::Append(nested, {3, 0, 1, 'a'});
    nested.push_back(5);
    for (int i = 0; i < depth; ++i) test::Append(nested, {0, 0, 9});
    EXPECT_EQ(ReadCommand({nested.data(), nested.size()}, command), depth == 8) << depth;
  }
}

}  // namespace
}  // namespace nimbo::plugin
