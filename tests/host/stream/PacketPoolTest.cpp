#include "host/stream/PacketPool.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <set>

#include "tests/support/MediaSamples.h"

namespace nimbo::stream {
namespace {

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
