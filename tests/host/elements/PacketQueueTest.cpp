#include "host/elements/PacketQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/MediaSamples.h"

namespace nimbo::stream {
namespace {

using testing::ElementsAre;

class PacketQueueTest : public testing::Test {
 protected:
  PacketQueueTest() { queue.Reset(4); }

  unsigned int Offer(std::uint32_t sequence, bool key, IMedia* media) {
    return queue.Offer(test::NewPacket({{1}, key, 0, sequence, media}));
  }
  std::vector<std::uint32_t> Drain() {
    std::vector<std::uint32_t> sequences;
    while (!queue.Empty()) {
      const Held<Packet> packet = queue.Pop();
      sequences.push_back(packet->Sequence());
    }
    return sequences;
  }

  const Held<Media> video = test::VideoMedia();
  const Held<Media> audio = test::AudioMedia();
  PacketQueue queue;
};

TEST_F(PacketQueueTest, OverflowDropsPicturesUpToTheNextKeyFrame) {
  for (std::uint32_t i = 1; i <= 4; ++i) EXPECT_EQ(Offer(i, i % 3 == 1, video.get()), 0U);
  EXPECT_EQ(Offer(5, false, video.get()), 3U);
  EXPECT_THAT(Drain(), ElementsAre(4, 5));
}

TEST_F(PacketQueueTest, AKeyFrameThatFindsItFullIsKept) {
  for (std::uint32_t i = 1; i <= 4; ++i) Offer(i, false, video.get());
  EXPECT_EQ(Offer(5, true, video.get()), 4U);
  EXPECT_THAT(Drain(), ElementsAre(5));
}

TEST_F(PacketQueueTest, SoundLosesItsOldestFrameOnly) {
  for (std::uint32_t i = 1; i <= 4; ++i) Offer(i, false, audio.get());
  EXPECT_EQ(Offer(5, false, audio.get()), 1U);
  EXPECT_THAT(Drain(), ElementsAre(2, 3, 4, 5));
}

}  // namespace
}  // namespace nimbo::stream
