#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "host/stream/Port.h"
#include "tests/host/elements/Collector.h"
#include "tests/support/StoppedClock.h"
#include "tests/support/TestCapture.h"

namespace nimbo::stream::test {
namespace {

using nimbo::test::AudioMedia;
using nimbo::test::Feed;
using nimbo::test::Millisecond;
using nimbo::test::VideoMedia;
using testing::ElementsAre;

/// A camera and a microphone that are fed by the test, merged for a collector.
class AvSyncTest : public testing::Test {
 protected:
  void Play(const std::string& text = nimbo::test::RingConfiguration({"h264-feed", "aac-feed"}) +
                                      "+collector:link=all") {
    app = Build(text);
    ASSERT_TRUE(app);
    ASSERT_TRUE(app->StatusSet("play"));
  }
  static void Push(Feed& feed, std::initializer_list<int> times) {
    for (const int time : times) {
      feed.Push({1}, true, time * Millisecond, static_cast<std::uint32_t>(time + 1));
    }
  }

  Feed video{"h264-feed", VideoMedia()};
  Feed audio{"aac-feed", AudioMedia()};
  OwnedApplication app;
};

TEST_F(AvSyncTest, StreamsAreMergedByTimeAndPicturesGoFirstAtEqualTimes) {
  for (const auto& sources : {std::vector<std::string>{"h264-feed", "aac-feed"},
                              std::vector<std::string>{"aac-feed", "h264-feed"}}) {
    Push(video, {0, 40, 80, 120});
    Push(audio, {0, 23, 40, 70, 110, 130});
    Play(nimbo::test::RingConfiguration(sources) + "+collector:link=all");
    EXPECT_THAT(TheCollector().Wait(10),
                ElementsAre("h264 0", "aac 0", "aac 23", "h264 40", "aac 40", "aac 70", "h264 80",
                            "aac 110", "h264 120", "aac 130"))
        << "first is " << sources.front();
    app.reset();
  }
}

TEST_F(AvSyncTest, TheFirstPictureGoesBeforeOlderSound) {
  Play();
  for (const std::size_t last : {5U, 10U}) {
    ASSERT_TRUE(app->StatusSet("null"));
    Push(video, {50, 90});
    Push(audio, {0, 20, 60});
    ASSERT_TRUE(app->StatusSet("play"));
    auto seen = TheCollector().Wait(last);
    seen.erase(seen.begin(), seen.end() - 5);
    EXPECT_THAT(seen, ElementsAre("h264 50", "aac 0", "aac 20", "aac 60", "h264 90"))
        << "whenever it starts";
  }
}

TEST_F(AvSyncTest, ASilentInputHoldsTheOthersUpForHalfASecondUntilSomethingComesAgain) {
  using namespace std::chrono_literals;
  nimbo::test::StoppedClock clock;
  constexpr std::chrono::milliseconds Limit{500}, Late{10};
  // The thread that waits may begin late: the shortest wait of several tells.
  auto shortest = Clock::duration::max();
  std::size_t count = 0;
  const auto held = [&](int time) {
    Push(audio, {time, time + 1});  // the second one does not wait once more
    std::this_thread::sleep_for(5ms);
    Clock::duration passed = Limit - 1ms;
    clock.Advance(passed);
    std::this_thread::sleep_for(5ms);
    EXPECT_EQ(TheCollector().Sequences().size(), count) << "before its time";
    for (; TheCollector().Sequences().size() == count; passed += 1ms) {
      clock.Advance(1ms);
      std::this_thread::sleep_for(3ms);
    }
    shortest = std::min(shortest, passed);
    EXPECT_EQ(TheCollector().Wait(count += 2).back(), "aac " + std::to_string(time + 1));
  };
  Play();
  for (int time = 0; time < 200 || (time < 2000 && shortest > Limit + Late); time += 100) {
    held(time);
    Push(video, {time + 10});
    EXPECT_EQ(TheCollector().Wait(++count).back(), "h264 " + std::to_string(time + 10));
    held(time + 20);
    ASSERT_TRUE(app->StatusSet("null") && app->StatusSet("play"));
  }
  EXPECT_LE(shortest, Limit + Late);
}

/// Where the newest key frame of late pictures is found: behind them in the queue, or in the ring.
class LateAvSyncTest : public AvSyncTest, public testing::WithParamInterface<const char*> {};

TEST_P(LateAvSyncTest, GoesOnAtTheNewestKeyFrameWithTheSoundFromThereOn) {
  nimbo::test::StoppedClock clock;
  Play();
  ASSERT_TRUE(app->StatusSet("null"));
  ASSERT_TRUE(Element("avsync").SetStr("max", GetParam()) &&
              Element("avsync").SetStr("max-lag", "0.02"));
  ASSERT_TRUE(app->StatusSet("play"));
  TheCollector().HoldUp(true);
  Push(video, {0});
  TheCollector().Wait(1);
  Push(audio, {1, 10, 20, 30, 40});
  for (const int time : {10, 20, 30, 40}) {
    video.Push({1}, time == 10 || time == 30, time * Millisecond, static_cast<std::uint32_t>(time));
  }
  ASSERT_TRUE(Reaches("RingSink", "packets", "5") && Reaches("RingSink-2", "packets", "5"));
  clock.Advance(std::chrono::milliseconds(25));
  TheCollector().HoldUp(false);
  // Sound waits half a second for pictures that do not come.
  for (int i = 0; i < 1000 && TheCollector().Sequences().size() < 5; ++i) {
    clock.Advance(std::chrono::milliseconds(10));
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_THAT(TheCollector().Wait(5),
              ElementsAre("h264 0", "h264 30", "aac 30", "h264 40", "aac 40"));
  EXPECT_TRUE(Reaches("avsync", "late", "5"));
  EXPECT_TRUE(Reaches("avsync", "queued", "0"));
}

INSTANTIATE_TEST_SUITE_P(QueueOf, LateAvSyncTest, testing::Values("64", "1"));

TEST_F(AvSyncTest, LiveStreamsLosePacketsWhenItIsFullAndStoppingDropsTheRest) {
  Play("shm-source:connect={pv:h264-feed}+ele-sync+collector");
  // What is queued waits for this input for so long that stopping finds it.
  Port silent(nullptr, "aac", true);
  ASSERT_TRUE(silent.Link(*Element("AvSync").PortAdd("aac", "in")));
  ASSERT_TRUE(Element("AvSync").SetStr("max", "4")) << "takes effect at the next start";
  ASSERT_TRUE(app->StatusSet("ready"));
  TheCollector().HoldUp(true);
  ASSERT_TRUE(app->StatusSet("play"));
  Push(video, {0});
  TheCollector().Wait(1);
  Push(video, {1, 2, 3, 4, 5, 6});
  EXPECT_TRUE(Reaches("AvSync", "dropped", "2"));
  EXPECT_TRUE(Reaches("AvSync", "queued", "5")) << "one is being delivered";
  ASSERT_TRUE(app->StatusSet("ready"));
  EXPECT_TRUE(Reaches("AvSync", "queued", "0"));
  EXPECT_TRUE(Reaches("AvSync", "ended", "4"));
  EXPECT_THAT(TheCollector().Sequences(), ElementsAre(1));
}

}  // namespace
}  // namespace nimbo::stream::test
