#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <thread>

#include "base/reflect/Class.h"
#include "base/reflect/TClass.h"
#include "host/stream/ControlQueue.h"
#include "host/stream/RingBuffer.h"
#include "host/stream/State.h"
#include "tests/host/elements/Collector.h"
#include "tests/support/ConsoleCapture.h"
#include "tests/support/Eventually.h"
#include "tests/support/StreamFile.h"
#include "tests/support/TestCapture.h"

namespace nimbo::stream::test {
namespace {

using nimbo::test::Feed;
using nimbo::test::StreamFile;
using testing::ElementsAre;

constexpr std::chrono::nanoseconds Patience = std::chrono::minutes(1);
constexpr std::chrono::nanoseconds NoLimit = std::chrono::nanoseconds::max();

std::vector<PacketRing*> Rings(Application& application) {
  std::vector<PacketRing*> rings;
  application.OutputList(rings, false);
  return rings;
}

/// How often a source has told its end.
std::shared_ptr<int> CountEnds(Application& application) {
  auto ends = std::make_shared<int>(0);
  HostState(application).listeners->Add([ends](const Message& message) {
    *ends += message.name == "end_of_stream";
  });
  return ends;
}

/// Packets of three bytes.
void Push(Feed& feed, std::uint32_t first, std::uint32_t last, bool key = false) {
  for (std::uint32_t i = first; i <= last; ++i) feed.Push({1, 2, 3}, key, i, i);
}

TEST(PipelineTest, EveryStreamOfASourceGetsItsRing) {
  const StreamFile video(nimbo::test::VideoStream(10, 5, 60));
  const StreamFile audio(nimbo::test::AdtsStream(10, 90));
  auto app = Build("shm-source:connect={pv:es,video=" + video.Path() + ",audio=" + audio.Path() +
                   ",pace=fast}+fifofilter:max=30+RingSink:size=300");
  ASSERT_TRUE(app);
  ASSERT_TRUE(app->StatusSet("ready"));
  const auto rings = Rings(*app);
  ASSERT_EQ(rings.size(), 2U);
  ASSERT_TRUE(rings[0]->Media(NoLimit));
  EXPECT_STREQ(rings[0]->Media(NoLimit)->Codec(), "h264");
  ASSERT_TRUE(rings[1]->Media(NoLimit));
  EXPECT_STREQ(rings[1]->Media(NoLimit)->Codec(), "aac");
  EXPECT_EQ(rings[0]->Size(), 300);
  for (PacketRing* ring : rings) {
    const std::unique_ptr<IRing<Packet*>::Reader> reader(ring->CreateReader(nullptr));
    ASSERT_TRUE(app->StatusSet("play"));
    for (std::uint32_t i = 1; i <= 10; ++i) {
      Packet* packet = nullptr;
      ASSERT_TRUE(reader->Pop(packet, Patience));
      EXPECT_EQ(packet->Sequence(), i);
      EXPECT_EQ(packet->Media(), ring->Media(NoLimit));
    }
    ASSERT_TRUE(app->StatusSet("null"));
    EXPECT_EQ(ring->Media(NoLimit), nullptr);
    EXPECT_EQ(ring->Get(ring->WritePosition() - 2), nullptr) << "only what is pinned is left";
    ASSERT_TRUE(app->StatusSet("ready")) << "it can be played again";
  }
}

TEST(PipelineTest, AQueueKeepsTheOrderOfItsStreams) {
  const StreamFile video(nimbo::test::VideoStream(3, 2, 60));
  const StreamFile audio(nimbo::test::AdtsStream(4, 200));
  auto app = Build("shm-source:connect={pv:es,fr=25,pace=fast,video=" + video.Path() +
                   ",audio=" + audio.Path() + "}+fifofilter+collector");
  ASSERT_TRUE(app);
  TheCollector().HoldUp(true);
  ASSERT_TRUE(app->StatusSet("play"));
  EXPECT_TRUE(Reaches("FifoFilter", "queued", "7")) << "one is being delivered";
  TheCollector().HoldUp(false);
  EXPECT_THAT(TheCollector().Wait(7),
              ElementsAre("h264 0", "aac 0", "aac 23", "h264 40", "aac 46", "aac 69", "h264 80"));
}

TEST(PipelineTest, WholeObjectFormsHoldTheSettingsAndNoFigures) {
  for (const auto& [text, form] : std::initializer_list<std::pair<const char*, const char*>>{
           {"RingSink:name=e", "size=64,max-lag=2"},
           {"fifofilter:name=e", "max=60"},
           {"ele-sync:name=e", "max=64,max-lag=2"}}) {
    const auto app = Build(text);
    ASSERT_TRUE(app);
    std::string told;
    EXPECT_TRUE(Element("e").toString(told));
    EXPECT_EQ(told, form);
  }
}

TEST(PipelineTest, TheRingOfAFailedSourceHasNoMedia) {
  Feed feed("h264-feed", nimbo::test::VideoMedia());
  auto app = Build("shm-source:connect={pv:h264-feed}+RingSink");
  ASSERT_TRUE(app);
  feed.FailToOpen();
  EXPECT_FALSE(app->StatusSet("ready"));
  EXPECT_EQ(Rings(*app)[0]->Media(NoLimit), nullptr);
}

/// Stands for the source of a plug-in, which knows nothing of how the host's elements tell media.
class ForeignSource : public IElement {
 public:
  ForeignSource() { HostState(*this).Add(this, "", true); }
  ~ForeignSource() override { StatusTakeDown(); }
};
[[maybe_unused]] base::IClass* const ForeignClass =
    base::TClass<>::Register<ForeignSource>("ForeignSource-foreign-source", {});

TEST(PipelineTest, ARingWhoseMediaNobodyTellsHasNoneUntilAPacketStatesIt) {
  for (const char* text :
       {"RingSink", "foreign-source+RingSink", "foreign-source+fifofilter+RingSink"}) {
    auto app = Build(text);
    ASSERT_TRUE(app) << text;
    ASSERT_TRUE(app->StatusSet("ready")) << text;
    EXPECT_EQ(Rings(*app)[0]->Media(NoLimit), nullptr) << text;
  }
  auto app = Build("foreign-source+RingSink");
  ASSERT_TRUE(app && app->StatusSet("play"));
  const auto media = nimbo::test::VideoMedia();
  nimbo::test::PacketForm form;
  form.media = media.get();
  Port& output = *HostState(Element("ForeignSource")).outputs.front();
  EXPECT_TRUE(output.Deliver(*nimbo::test::NewPacket(form)));
  EXPECT_EQ(Rings(*app)[0]->Media(NoLimit), media.get());
}

TEST(PipelineTest, AFullFifoOfALiveSourceGoesOnAtTheNextKeyFrame) {
  Feed feed("h264-feed", nimbo::test::VideoMedia());
  auto app = Build("shm-source:connect={pv:h264-feed}+fifofilter:max=5+collector");
  ASSERT_TRUE(app);
  TheCollector().HoldUp(true);
  ASSERT_TRUE(app->StatusSet("play"));
  Push(feed, 1, 1, true);
  TheCollector().Wait(1);
  Push(feed, 2, 7);
  EXPECT_TRUE(Reaches("FifoFilter", "dropped", "6"));
  Push(feed, 8, 8, true);
  Push(feed, 9, 9);
  EXPECT_TRUE(Reaches("FifoFilter", "queued", "3"));
  TheCollector().HoldUp(false);
  TheCollector().Wait(3);
  EXPECT_THAT(TheCollector().Sequences(), ElementsAre(1, 8, 9));
}

class BackPressureTest : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    ASSERT_TRUE(app);
    TheCollector().HoldUp(true);
  }
  static constexpr std::uint32_t Pictures = 300;
  const StreamFile video{nimbo::test::VideoStream(Pictures, 10, 60)};
  const OwnedApplication app =
      Build("shm-source:connect={pv:es,video=" + video.Path() + ",pace=fast}+" + GetParam());
};

TEST_P(BackPressureTest, HoldsAFileUpAndLosesNothing) {
  const auto ends = CountEnds(*app);
  for (Pipeline* pipeline : HostState(*app).pipelines) {
    for (IElement* element : HostState(*pipeline).elements) element->SetStr("max-lag", "0.001");
  }
  ASSERT_TRUE(app->StatusSet("play"));
  TheCollector().Wait(1);
  std::this_thread::sleep_for(std::chrono::milliseconds(2));  // late, if it were live
  TheCollector().HoldUp(false);
  TheCollector().Wait(Pictures);
  std::vector<std::uint32_t> expected(Pictures);
  std::iota(expected.begin(), expected.end(), 1);
  EXPECT_EQ(TheCollector().Sequences(), expected);
  EXPECT_TRUE(Reaches("ShmSource", "packets", std::to_string(Pictures)));
  nimbo::test::Eventually([&] { return ControlQueue::Global().Run(), *ends > 0; });
  ASSERT_TRUE(app->StatusSet("null"));
  ControlQueue::Global().Run();
  EXPECT_EQ(*ends, 1) << "the source tells its end once";
}

TEST_P(BackPressureTest, DoesNotKeepItFromStopping) {
  for (std::size_t round = 1; round <= 3; ++round) {
    ASSERT_TRUE(app->StatusSet("play"));
    TheCollector().Wait(round);
    ASSERT_TRUE(app->StatusSet("null"));
  }
}

INSTANTIATE_TEST_SUITE_P(Consumers, BackPressureTest,
                         testing::Values("fifofilter:max=3+collector", "collector",
                                         "collector:link=all"));

TEST(PipelineTest, ARingFeedsAnyNumberOfConsumers) {
  Feed feed("h264-feed", nimbo::test::VideoMedia());
  auto app =
      Build("shm-source:connect={pv:h264-feed}+RingSink+collector:link=all+collector:link=all");
  ASSERT_TRUE(app);
  const auto ends = CountEnds(*app);
  ASSERT_TRUE(app->StatusSet("play"));
  Push(feed, 1, 19, true);
  const auto changed = nimbo::test::VideoMedia();
  feed.Push(nimbo::test::NewPacket({{1, 2, 3}, true, 20, 20, changed.get()}));
  for (const char* name : {"Collector", "Collector-2"}) {
    EXPECT_EQ(TheCollector(name).Wait(20).size(), 20U) << name;
  }
  EXPECT_TRUE(Reaches("RingSink", "packets", "20"));
  EXPECT_TRUE(Reaches("RingSink", "bytes", "60"));
  EXPECT_TRUE(Reaches("ShmSource", "bytes", "60"));
  EXPECT_TRUE(Reaches("h264", "packets", "20")) << "the bridge is named by what it carries";
  ASSERT_TRUE(app->StatusSet("null"));
  ControlQueue::Global().Run();
  EXPECT_EQ(*ends, 0) << "a source that is stopped has not ended";
}

TEST(PipelineTest, WhatWasTakenInBeforeTheStartWaitsForItsReaders) {
  Feed feed("h264-feed", nimbo::test::VideoMedia());
  feed.FallBehind();
  Push(feed, 1, 20, true);
  auto app = Build("shm-source:connect={pv:h264-feed}+RingSink:size=2+collector:link=all");
  ASSERT_TRUE(app && Element("avsync").SetStr("max", "2"));
  ASSERT_TRUE(app->StatusSet("play"));
  EXPECT_EQ(TheCollector().Wait(20).size(), 20U);
  TheCollector().HoldUp(true);
  Push(feed, 21, 40, true);
  EXPECT_TRUE(app->StatusSet("null")) << "and does not keep it from stopping";
}

TEST(PipelineTest, ABridgeCountsWhatTheRingOverwroteBeforeItReadIt) {
  Feed feed("h264-feed", nimbo::test::VideoMedia());
  auto producer = Build("shm-source:connect={pv:h264-feed}+RingSink:size=4");
  auto attrs = Object::AttrSetInit({{"type", "Pipeline"}, {"name", "reader"}});
  const nimbo::test::Owned<Pipeline> pipeline(base::IClass::New<Pipeline>(attrs));
  ASSERT_TRUE(producer && pipeline);
  IElement* bridge = IElement::New("BridgeSource", "h264", pipeline.get(), "h264");
  auto* collector =
      dynamic_cast<Collector*>(IElement::New("collector", nullptr, pipeline.get(), nullptr));
  ASSERT_TRUE(bridge && collector && bridge->Link(*collector));
  ASSERT_TRUE(pipeline->LinkFrom(HostState(Element("RingSink")).FreeOutput()));
  collector->HoldUp(true);
  ASSERT_TRUE(pipeline->StatusSet("play") && producer->StatusSet("play"));
  Push(feed, 1, 1, true);
  collector->Wait(1);
  Push(feed, 2, 20);
  ASSERT_TRUE(Reaches("RingSink", "packets", "20"));
  collector->HoldUp(false);
  EXPECT_EQ(collector->Wait(5).size(), 5U);
  EXPECT_THAT(collector->Sequences(), ElementsAre(1, 17, 18, 19, 20));
  std::string dropped;
  EXPECT_TRUE(bridge->GetStr("dropped", dropped));
  EXPECT_EQ(dropped, "15");
  // The ring may go before its reader.
  producer.reset();
  EXPECT_TRUE(pipeline->StatusSet("null"));
}

TEST(PipelineTest, AMistakeIsToldInOneRedLine) {
  const Feed feed("h264-feed", nimbo::test::VideoMedia());
  const std::pair<const char*, const char*> mistakes[] = {
      {"shm-source", "set its \"connect\""},
      {"shm-source:connect={pv:h264-fed}",
       "no capture source \"h264-fed\"; did you mean \"h264-feed"},
      {"shm-source:connect={pv:h264-feed}+collector:link=all",
       "\"app/ShmSource\" brings in is live and must pass a ring: put \"+RingSink\" behind it"},
      {"RingSink:size=big", "size=big: a number of packets"},
      {"RingSink:size=0", "size=0: a number of packets from 1 to 65536 is needed"},
      {"RingSink:max-lag=-1", "max-lag=-1: seconds from 0 to 3600 are needed"},
      {"ele-sync:max-lag=1s", "max-lag=1s: seconds from 0 to 3600 are needed"},
      {"fifofilter:max=65537", "max=65537: a number of packets"}};
  for (const auto& [text, told] : mistakes) {
    nimbo::test::ConsoleCapture console;
    auto app = Build(text);
    EXPECT_FALSE(app && app->StatusSet("play"));
    const auto lines = console.Lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const auto& line) { return line.colour == '1'; }),
              1)
        << console.Text();
    EXPECT_THAT(console.Text(), testing::HasSubstr(told));
  }
}

}  // namespace
}  // namespace nimbo::stream::test
