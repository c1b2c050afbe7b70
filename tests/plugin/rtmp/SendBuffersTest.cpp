#include "plugin/rtmp/SendBuffers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/ConsoleCapture.h"

namespace nimbo::plugin::rtmp {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Places Here = {{},
                         {},
                         {},
                         {},
                         {},
                         {"plugin/rtmp/Owner.cpp", 11, "SendBufferCreate"},
                         {"plugin/rtmp/Owner.cpp", 12, "SendBufferRealloc"},
                         {"plugin/rtmp/Owner.cpp", 13, "operator()"}};
constexpr Profile Terse = {Here, false, true, false, false, false};
constexpr Profile Detailed = {Here, true, false, true, true, true};

/// Send buffers outside a publishing object; frees the one that a test holds.
class Buffers : public SendBuffers {
 public:
  explicit Buffers(const Profile& profile) : SendBuffers(profile) {}
  ~Buffers() { SendBufferDestroy(held); }
  void ExpectZeroed(std::size_t capacity) const {
    EXPECT_EQ(held->capacity, capacity);
    EXPECT_EQ(std::count(held->data, held->data + capacity, 0), static_cast<long>(capacity));
  }
  send_buffer_t* held = nullptr;
};

TEST(SendBuffers, CapacityIsZeroedAndRoundedUpToWordsThenToKilobytesAbove) {
  for (const auto& [size, capacity] : {std::pair(1u, 4u), {4u, 4u}, {5u, 8u}, {1024u, 1024u}}) {
    Buffers buffers(Terse);
    buffers.held = buffers.SendBufferCreate(size);
    ASSERT_NE(buffers.held, nullptr);
    buffers.ExpectZeroed(capacity);
  }
  for (const auto& [size, capacity] : {std::pair(0u, 1024u), {1000u, 1024u}, {1024u, 2048u}}) {
    Buffers buffers(Terse);
    buffers.held = buffers.SendBufferCreate(8);
    std::fill_n(buffers.held->data, 8, static_cast<unsigned char>(0xEE));
    EXPECT_TRUE(buffers.SendBufferRealloc(buffers.held, size));
    buffers.ExpectZeroed(capacity);
  }
}

TEST(SendBuffers, EmptyOnesAreRefused) {
  test::ConsoleCapture console;
  Buffers buffers(Terse);
  SendBuffers::send_buffer_t* none = nullptr;
  SendBuffers::send_buffer_t bare;
  SendBuffers::send_buffer_t* empty = &bare;
  EXPECT_FALSE(buffers.SendBufferRealloc(none, 100));
  EXPECT_FALSE(buffers.SendBufferRealloc(empty, 100));
  EXPECT_EQ(empty, &bare);
  EXPECT_EQ(buffers.SendBufferToString(nullptr), "");
  EXPECT_EQ(buffers.SendBufferToString(&bare), "");
  EXPECT_THAT(console.Text(), IsEmpty());
  EXPECT_EQ(buffers.SendBufferCreate(0), nullptr);
  EXPECT_THAT(console.Failures(), ElementsAre("SendBufferCreate: size <= 0"));
}

TEST(SendBuffers, GrowWhenAskedAndNeededOfWhichTheDetailedClassTells) {
  for (const Profile& profile : {Terse, Detailed}) {
    test::ConsoleCapture console;
    Buffers buffers(profile);
    buffers.held = buffers.SendBufferCreate(1024);
    const std::string before = buffers.SendBufferToString(buffers.held);
    EXPECT_TRUE(buffers.SendBufferCheck(buffers.held, 1024, true));
    EXPECT_FALSE(buffers.SendBufferCheck(buffers.held, 1025, false));
    EXPECT_EQ(buffers.SendBufferToString(buffers.held), before);
    console.Clear();
    EXPECT_TRUE(buffers.SendBufferCheck(buffers.held, 1025, true));
    const std::string after = buffers.SendBufferToString(buffers.held);
    EXPECT_THAT(after, testing::MatchesRegex("address=0x[0-9a-f]+,data=0x[0-9a-f]+,size=2048"));
    std::string lines;
    for (const test::ConsoleLine& line : console.Lines()) {
      lines += line.colour + line.function + ": " + line.text + "\n";
    }
    EXPECT_EQ(lines, profile.detailed
                         ? "6operator(): buf->Size()=1024\n6operator(): dest_size=1025\n"
                           "6SendBufferRealloc: " +
                               before + "\n6SendBufferRealloc: " + after + "\n"
                         : "");
  }
}

}  // namespace
}  // namespace nimbo::plugin::rtmp
