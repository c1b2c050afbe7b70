#include "host/stream/PacketPool.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <set>

#include "tests/support/MediaSamples.h"

namespace nimbo::stream {
namespace {

Held<HostPacket> Take(PacketPool& pool, unsigned int size) {
  Held<HostPacket> packet = pool.New(size);
  std::memset(packet->Bytes(), 0x5A, size);  // all of it must be there
  packet->Describe(size, false, 0, 1, nullptr);
  return packet;
}

TEST(PacketPoolTest, ASteadyStreamUsesItsPacketsAgain) {
  PacketPool pool;
  std::deque<Held<HostPacket>> ring;
  std::set<const HostPacket*> seen;
  std::size_t after_warming = 0;
  for (unsigned int i = 0; i < 4000; ++i) {
    ring.push_back(Take(pool, i % 30 == 0 ? 60000 + i % 7 * 500 : 4000 + i % 11 * 300));
    seen.insert(ring.back().get());
    if (ring.size() > 64) ring.pop_front();
    if (i == 1000) after_warming = seen.size();
  }
  EXPECT_EQ(seen.size(), after_warming);
}

/// Rooms are steps of an eighth of a power of two, from 512 bytes: a packet has all of its room,
/// and serves whatever fits into it, but nothing that is a byte larger.
TEST(PacketPoolTest, ARoomIsUsedAgainForAllThatFitsAndNothingElse) {
  const std::pair<unsigned int, unsigned int> rooms[] = {
      {1, 512}, {511, 512}, {512, 512}, {513, 576}, {576, 576}, {1025, 1152}, {60001, 61440}};
  for (const auto& [asked, room] : rooms) {
    PacketPool pool;
    const HostPacket* const packet = Take(pool, asked).get();
    EXPECT_EQ(Take(pool, room).get(), packet) << asked;
    const Held<HostPacket> kept = Take(pool, 1);
    const bool reused = kept.get() == packet;
    EXPECT_EQ(reused, room == 512) << "a large room is not spent on a small packet";
    PacketPool other;
    const HostPacket* const small = Take(other, asked).get();
    EXPECT_NE(Take(other, room + 1).get(), small) << "it would do but for a byte";
  }
}

TEST(PacketPoolTest, PacketsAndTheirMediaOutliveThePool) {
  auto pool = std::make_unique<PacketPool>();
  Held<HostPacket> packet = Take(*pool, 100);
  packet->Describe(100, true, 5, 6, test::VideoMedia().get());
  pool.reset();
  EXPECT_STREQ(packet->Media()->Codec(), "h264");
  EXPECT_EQ(packet->Data()[99], 0x5A);
}

}  // namespace
}  // namespace nimbo::stream
