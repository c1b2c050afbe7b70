#include "host/stream/PacketPool.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <set>
#include <thread>

#include "tests/support/MediaSamples.h"

namespace nimbo::stream {
namespace {

using test::Held;

Held<HostPacket> Take(PacketPool& pool, unsigned int size) {
  Held<HostPacket> packet(pool.New(size));
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

TEST(PacketPoolTest, SmallPacketsDoNotSitInTheMemoryOfLargeOnes) {
  PacketPool pool;
  const HostPacket* large = Take(pool, 200000).get();
  EXPECT_NE(Take(pool, 1000).get(), large);
  EXPECT_EQ(Take(pool, 190000).get(), large);
}

TEST(PacketPoolTest, PacketsAndTheirMediaOutliveThePool) {
  auto pool = std::make_unique<PacketPool>();
  Held<HostPacket> packet = Take(*pool, 100);
  packet->Describe(100, true, 5, 6, test::VideoMedia().get());
  pool.reset();
  EXPECT_STREQ(packet->Media()->Codec(), "h264");
  EXPECT_EQ(packet->Data()[99], 0x5A);
}

TEST(PacketPoolTest, PacketsComeBackFromOtherThreads) {
  PacketPool pool;
  for (int round = 0; round < 50; ++round) {
    std::vector<Held<HostPacket>> packets;
    for (unsigned int i = 0; i < 20; ++i) packets.push_back(Take(pool, 100 * i));
    std::thread other([taken = std::move(packets)]() mutable { taken.clear(); });
    for (unsigned int i = 0; i < 20; ++i) Take(pool, 100 * i);
    other.join();
  }
}

}  // namespace
}  // namespace nimbo::stream
