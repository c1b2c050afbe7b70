#include "plugin/rtmp/SendBuffers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/ConsoleCapture.h"

namespace nimbo::plugin::rtmp {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Profile Terse = {"plugin/rtmp/Terse", "Send", false, true, false, false, false};
constexpr Profile Detailed = {"plugin/rtmp/Detailed", "Send", true, false, true, true, true};

/// Send buffers outside a publishing object; frees the one that a test holds.
using send_buffer_t = SendBuffers::send_buffer_t;

class Buffers : public SendBuffers {
 public:
  explicit Buffers(const Profile& profile) : SendBuffers(profile) {}
  ~Buffers() { SendBufferDestroy(held); }
  send_buffer_t* held = nullptr;
};

TEST(SendBuffers, CapacityIsTheSizeRoundedUpToWords) {
  for (const auto& [size, capacity] : {std::pair(1u, 4u), {4u, 4u}, {5u, 8u}, {1024u, 1024u}}) {
    Buffers buffers(Terse);
    buffers.held = buffers.SendBufferCreate(size);
    ASSERT_NE(buffers.held, nullptr);
    EXPECT_EQ(buffers.held->capacity, capacity);
    EXPECT_TRUE(std::all_of(buffers.held->data, buffers.held->data + capacity,
                            [](unsigned char byte) { return byte == 0; }));
  }
}

TEST(SendBuffers, SizeZeroIsRefusedWithOneLine) {
  test::ConsoleCapture console;
  Buffers buffers(Terse);
  EXPECT_EQ(buffers.SendBufferCreate(0), nullptr);
  EXPECT_THAT(console.Failures(), ElementsAre("SendBufferCreate: size <= 0"));
  buffers.SendBufferDestroy(nullptr);
}

TEST(SendBuffers, GrowingGivesZeroedMemoryOfTheNextKilobyteAbove) {
  for (const auto& [size, capacity] : {std::pair(0u, 1024u), {1000u, 1024u}, {1024u, 2048u}}) {
    Buffers buffers(Terse);
    buffers.held = buffers.SendBufferCreate(8);
    std::fill_n(buffers.held->data, 8, static_cast<unsigned char>(0xEE));
    EXPECT_TRUE(buffers.SendBufferRealloc(buffers.held, size));
    EXPECT_EQ(buffers.held->capacity, capacity);
    EXPECT_TRUE(std::all_of(buffers.held->data, buffers.held->data + capacity,
                            [](unsigned char byte) { return byte == 0; }));
  }
}

TEST(SendBuffers, EmptyBuffersCannotGrow) {
  test::ConsoleCapture console;
  Buffers buffers(Terse);
  send_buffer_t* none = nullptr;
  EXPECT_FALSE(buffers.SendBufferRealloc(none, 100));
  send_buffer_t bare;
  send_buffer_t* empty = &bare;
  EXPECT_FALSE(buffers.SendBufferRealloc(empty, 100));
  EXPECT_EQ(empty, &bare);
  EXPECT_EQ(buffers.SendBufferToString(nullptr), "");
  EXPECT_EQ(buffers.SendBufferToString(&bare), "");
  EXPECT_THAT(console.Text(), IsEmpty());
}

TEST(SendBuffers, CheckGrowsOnlyWhenAskedAndNeeded) {
  test::ConsoleCapture console;
  Buffers buffers(Terse);
  buffers.held = buffers.SendBufferCreate(1024);
  const send_buffer_t* const first = buffers.held;
  EXPECT_TRUE(buffers.SendBufferCheck(buffers.held, 1024, true));
  EXPECT_FALSE(buffers.SendBufferCheck(buffers.held, 1025, false));
  EXPECT_EQ(buffers.held, first);
  EXPECT_TRUE(buffers.SendBufferCheck(buffers.held, 1025, true));
  EXPECT_EQ(buffers.held->capacity, 2048u);
  EXPECT_THAT(console.Text(), IsEmpty());
}

TEST(SendBuffers, DetailedClassTellsOfItsGrowth) {
  test::ConsoleCapture console;
  Buffers buffers(Detailed);
  buffers.held = buffers.SendBufferCreate(1024);
  const std::string before = buffers.SendBufferToString(buffers.held);
  EXPECT_TRUE(buffers.SendBufferCheck(buffers.held, 1025, true));
  const std::string after = buffers.SendBufferToString(buffers.held);
  std::vector<std::string> lines;
  for (const test::ConsoleLine& line : console.Lines()) {
    EXPECT_EQ(line.colour, '6');
    lines.push_back(line.function + ": " + line.text);
  }
  EXPECT_THAT(lines, ElementsAre("operator(): buf->Size()=1024", "operator(): dest_size=1025",
                                 "SendBufferRealloc: " + before, "SendBufferRealloc: " + after));
  EXPECT_THAT(after, testing::MatchesRegex("address=0x[0-9a-f]+,data=0x[0-9a-f]+,size=2048"));
}

}  // namespace
}  // namespace nimbo::plugin::rtmp
