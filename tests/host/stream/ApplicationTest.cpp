#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "base/reflect/TClass.h"
#include "host/base/Framework.h"
#include "tests/host/stream/Probes.h"
#include "tests/support/ConsoleCapture.h"
#include "tests/support/Eventually.h"

namespace nimbo::stream::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<std::string> Paths() {
  std::vector<std::string> paths;
  for (const LiveObject& object : ListObjects()) paths.push_back(object.path);
  return paths;
}

TEST(Application, WrapsConsecutiveElementsAndNamesWhatHasNoName) {
  const auto application =
      NewApplication("app",
                     "test-source+test-sink:name=end+type=pipeline,name=TestSink,serialize={"
                     "test-source+test-filter+test-sink:name=end}+test-source+TestSink");
  ASSERT_TRUE(application);
  EXPECT_THAT(Paths(), ElementsAre("app", "app/Pipeline", "app/TestSource", "app/end",
                                   "app/TestSink", "app/TestSource-2", "app/TestFilter", "app/end",
                                   "app/Pipeline-2", "app/TestSource-3", "app/TestSink"));
  EXPECT_TRUE(
      ElementAt<TestSource>("app/TestSource-2").Linked(ElementAt<TestFilter>("app/TestFilter")));
  EXPECT_EQ(Framework::Pipeline(ElementAt<TestSource>("app/TestSource-3")),
            FindObject("app/Pipeline-2"));
  EXPECT_TRUE(base::object::AsType<IElement>(FindObject("app/end")));
  EXPECT_TRUE(base::object::AsType<IElement>(FindObject("app/TestSink"))) << "before the pipeline";
}

TEST(Application, IsBuiltAnewWhileItIsNotOpen) {
  const auto application = NewApplication("app", "test-source+test-sink");
  ASSERT_TRUE(application->Set("serialize", "test-source+test-filter"));
  EXPECT_THAT(Paths(), ElementsAre("app", "app/Pipeline", "app/TestSource", "app/TestFilter"));
  ASSERT_TRUE(application->StatusSet("ready"));
  nimbo::test::ConsoleCapture console;
  EXPECT_FALSE(application->Set("serialize", "test-source"));
  EXPECT_EQ(console.Lines().size(), 1u);
  EXPECT_EQ(Paths().size(), 4u);
}

/// How many bridges lead through the synchroniser to the element at `path`.
std::size_t Branches(const std::string& path) {
  auto& sink = ElementAt<IElement>(path);
  std::size_t branches = 0;
  for (IElement* element : HostState(*Framework::Pipeline(sink)).elements) {
    for (const auto& output : HostState(*element).outputs) {
      const Port* pipelines = nullptr;
      if (output->Linked() && output->Peer()->Owner() == &sink) pipelines = output->Followed();
      if (!pipelines || !pipelines->Linked()) continue;  // the synchroniser's input
      pipelines = pipelines->Peer()->Followed();         // the pipeline's port, behind the bridge
      if (pipelines && !pipelines->Owner() && pipelines->Linked()) ++branches;
    }
  }
  return branches;
}

TEST(ApplicationLinkAll, BridgesEveryOutputBeforeItToTheElement) {
  const auto application = NewApplication(
      "app",
      "test-source+test-ring+type=pipeline,serialize={test-source}+test-sink:link=all,name="
      "first+type=pipeline,serialize={test-source+test-ring}+test-sink:link=all,name=last");
  ASSERT_TRUE(application);
  EXPECT_EQ(Branches("app/first"), 2u);
  EXPECT_EQ(Branches("app/last"), 2u) << "both rings; the free output is linked already";
  const auto& first = ElementAt<TestSink>("app/first");
  EXPECT_EQ(HostState(*Framework::Pipeline(first)).elements.size(), 4u);
  for (const auto& input : HostState(first).inputs) EXPECT_STREQ(input->Caps(), "h264");
  EXPECT_TRUE(base::object::AsType<IElement>(FindObject("app/h264"))) << "a bridge";
  std::vector<PacketRing*> rings;
  EXPECT_TRUE(application->OutputList(rings, true));
  EXPECT_EQ(rings.size(), 0u) << "none is ready";
  EXPECT_TRUE(application->OutputList(rings, false));
  EXPECT_EQ(rings.size(), 2u);
  Journal::Global().Take();
  ASSERT_TRUE(application->StatusSet("play"));
  EXPECT_EQ(Journal::Global().Take().front(), "last.Open");

  auto& sink = ElementAt<TestSink>("app/first");
  ASSERT_TRUE(ElementAt<TestSource>("app/TestSource-2").Output().Deliver(*NewPacket()));
  ElementAt<TestRing>("app/TestRing").ring.Write(*NewPacket());
  EXPECT_TRUE(nimbo::test::Eventually([&] { return sink.packets == 2; }))
      << "one through the ring and one directly";
}

struct BadText {
  const char* name;
  const char* text;
  const char* told;
};

class ApplicationText : public testing::TestWithParam<BadText> {};

TEST_P(ApplicationText, FailsWithOneLineThatQuotesThePieceAndItsPosition) {
  const auto application = NewApplication("app");
  base::AttrSet attrs = Object::AttrSetInit({{"serialize", GetParam().text}});
  nimbo::test::ConsoleCapture console;
  EXPECT_FALSE(application->Configure(attrs));
  const auto lines = console.Lines();
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [](auto& l) { return l.colour == '1'; }), 1);
  EXPECT_THAT(console.Text(), HasSubstr(GetParam().told));
  EXPECT_THAT(Paths(), ElementsAre("app")) << "what was built is gone";
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ApplicationText,
    testing::Values(
        BadText{"UnknownClass", "test-source+test-snk",
                "\"test-snk\" at byte 12: there is no element or pipeline class like it; did you "
                "mean \"test-sink\"?"},
        BadText{"ClassOfAnotherKind", "test-source+test-service", "is no element or pipeline"},
        BadText{"UnknownClassInside", "type=pipeline,serialize={test-source+nobody}",
                "\"nobody\" at byte 12: "},
        BadText{"UnknownProperty", "test-source+test-sink:flag=1,flags=1",
                "\"flags\" at byte 29: class TestSink-test-sink has no such property; did you "
                "mean \"flag\"?"},
        BadText{"PropertyNamedLikeItsClass", "test-source+TestSink:in=3", "\"in\" at byte 21: "},
        BadText{"OpenList", "test-sink:fail=a,W=3", "fail, throw, port, flag; a value that holds "},
        BadText{"LongEntry", "test-sink:link=all,fail={rtmp://host/live/key?token=secret}",
                "\"test-sink:link=all,fail={rtmp://...\" at byte 0: "},
        BadText{"ExceptionOfAPort", "test-source+test-sink:link=all,throw=PortAdd",
                "Link of app/TestSink"},
        BadText{"RefusedValue", "test-source+test-sink:flag=perhaps",
                "refuses flag=perhaps: it is true or false"},
        BadText{"OtherLink", "test-source+test-sink:fail=in,link=in", "\"in\" at byte 35: "},
        BadText{"NothingToLink", "test-sink:link=all", "\"test-sink:link=all\" at byte 0: "},
        BadText{"NoOutput", "test-sink+test-source", "\"test-source\" at byte 10: "},
        BadText{"RefusedPort", "test-source:fail=a+test-sink:port=xyz", "refuses port=xyz"}),
    [](const auto& test) { return test.param.name; });

/// A pipeline that takes what it is linked from into a sink of its own, as a plug-in's does.
class TakingPipeline : public Pipeline {
 public:
  bool beforeLinkFrom(IPort* port) override {
    if (!port) return false;
    auto* sink = IElement::New("test-sink", "taker", this, nullptr);
    return sink && HostState(*this).AddPort(*sink, port->Caps()).Link(*port);
  }
};

TEST(PipelineLinkFrom, SeesWhatTheHookLinkedAndRaisesWhatItAdded) {
  RegisterProbes();
  base::TClass<>::Register<TakingPipeline>("pipeline-test-taking", {});
  const auto application =
      NewApplication("app", "test-source+type=pipeline-test-taking,name=in,link=all");
  ASSERT_TRUE(application);
  auto& source = ElementAt<TestSource>("app/TestSource");
  auto& taker = ElementAt<TestSink>("app/taker");
  auto& pipeline = ElementAt<Pipeline>("app/in");
  ASSERT_TRUE(application->StatusSet("play"));
  EXPECT_TRUE(source.Output().Deliver(*NewPacket()));
  EXPECT_EQ(taker.packets, 1);

  TestSource late;
  EXPECT_TRUE(pipeline.LinkFrom(&late.Output()));
  EXPECT_EQ(HostState(pipeline).Ports().size(), 2u);
  for (IElement* element : HostState(pipeline).elements) EXPECT_TRUE(element->StatusIsPlay());

  taker.Release();
  EXPECT_EQ(HostState(pipeline).Ports().size(), 1u) << "its port goes with it";
  EXPECT_FALSE(source.Output().Linked());
  EXPECT_FALSE(pipeline.LinkFrom(nullptr));
}

TEST(LiveObjects, CanBeReadWhileTheyComeAndGo) {
  std::atomic<bool> stop{false};
  std::thread reader([&] {
    while (!stop) {
      ListObjects();
      if (const auto pin = PinObject("app/TestSink")) {
        std::string text;
        dynamic_cast<Object&>(**pin).GetStr("fail", text);
      }
    }
  });
  constexpr int Rounds = 50;
  for (int round = 0; round < Rounds; ++round) {
    const auto application = NewApplication("app", "test-source+test-sink");
    ASSERT_TRUE(application && application->StatusSet("play"));
  }
  stop = true;
  reader.join();
  EXPECT_THAT(Paths(), IsEmpty());
}

}  // namespace
}  // namespace nimbo::stream::test
