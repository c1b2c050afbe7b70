#include "base/reflect/Class.h"
#include "host/stream/Port.h"
#include "host/stream/State.h"
#include "host/stream/Tree.h"
#include "tests/plugin/rtmp/ClientFixture.h"

namespace nimbo::test {
namespace {

using stream::Application;
using stream::FindObject;
using stream::IElement;
using stream::Pipeline;
using testing::ElementsAre;

constexpr char ClassName[] = "pipeline-rtmp-client-muxer-sink";

class RtmpPipeline : public FeedTest {
 protected:
  static IElement& Element(const std::string& path) {
    return dynamic_cast<IElement&>(*FindObject(path));
  }

  /// The pipeline of `elements` publishes both sources when they play.
  void ExpectPublishing(const std::string& elements, stream::Object& sources) {
    std::vector<std::string> lines = {"6 Initialize: (void*)this=ADDRESS"};
    for (const char* caps : {"h264", "aac"}) {
      for (const std::string text : {"(void*)_rtmp_client=ADDRESS", "(void*)_av_sync=ADDRESS",
                                     "port0->Caps()=", "(void*)src=ADDRESS"}) {
        lines.push_back("6 AddRing: " + text + (text.back() == '=' ? caps : ""));
      }
    }
    EXPECT_EQ(Told("PipelineRtmpClient"), lines);
    std::vector<std::string> classes;
    for (const stream::LiveObject& live : stream::ListObjects()) {
      if (live.path == elements + live.name) classes.push_back(live.className);
    }
    EXPECT_EQ(std::count(classes.begin(), classes.end(), "BridgeSource-bridge-source"), 2);
    EXPECT_EQ(std::count(classes.begin(), classes.end(), "AvSync-ele-sync"), 1);
    IElement& client = Element(elements + "EleRtmpClient");
    ASSERT_EQ(HostState(client).inputs.size(), 2u);
    EXPECT_TRUE(HostState(client).outputs.empty());
    EXPECT_STREQ(HostState(client).inputs[0]->Caps(), "h264");
    EXPECT_STREQ(HostState(client).inputs[1]->Caps(), "aac");
    EXPECT_TRUE(Element(elements + "avsync").Linked(client));

    IngestServer server;
    ASSERT_TRUE(client.Set("url", server.Url().c_str()));
    ASSERT_TRUE(Framework::Pipeline(client)->StatusSet("play") && sources.StatusSet("play"));
    PushVideo(true, 0);
    for (const int time : {0, 20}) PushAudio(time);
    ASSERT_TRUE(server.WaitForMedia(0, 5));
    EXPECT_THAT(Summary(server.Get(0)), ElementsAre("v0", "V0", "a0", "A0", "A20"));
    EXPECT_THAT(console.Failures(), testing::IsEmpty());
  }
};

TEST_F(RtmpPipeline, PublishesTheOutputsOfItsApplication) {
  const auto app = New<Application>("Application", "app");
  ASSERT_TRUE(app->Set("serialize", (Configuration() + "+" + ClassName + ":link=all").c_str()));
  ExpectPublishing("app/", *app);
}

TEST_F(RtmpPipeline, PublishesTheRingsThatItIsTold) {
  const auto app = New<Application>("Application", "app");
  ASSERT_TRUE(app->Set("serialize", Configuration().c_str()));
  const auto out = New<Pipeline>(ClassName, "out");
  EXPECT_TRUE(out->Set("ring", "app/RingSink.out"));
  EXPECT_TRUE(out->Set("ring", "app/RingSink-2.out"));
  ExpectPublishing("out/", *app);
}

/// A port of another host.
class StrangePort final : public stream::IPort {
 public:
  bool IsOutput() const override { return true; }
  bool Linked() const override { return false; }
  const char* Caps() const override { return "h264"; }
  bool Link(IPort&) override { return false; }
};

/// Makes objects as the registry does, and leaves them so.
struct Creator : base::IClass {
  static base::object* Make(base::IClass& cl) { return (cl.*&Creator::_creator)(nullptr); }
};

TEST_F(RtmpPipeline, RefusesPortsThatItCannotPublish) {
  const Owned<Pipeline> raw(
      dynamic_cast<Pipeline*>(Creator::Make(*base::IClass::Find(ClassName, true))));
  const auto out = New<Pipeline>(ClassName, "out");
  stream::Port input(nullptr, "h264", false);
  stream::Port linked(nullptr, "h264", true);
  ASSERT_TRUE(linked.Link(input));
  StrangePort strange;
  const struct {
    Pipeline& pipeline;
    stream::IPort* port;
    const char* failure;
  } cases[] = {
      {*raw, &input, "AddRing: !_rtmp_client"},
      {*out, nullptr, "AddRing: !port0"},
      {*out, &input, "AddRing: !port0->IsOutput()"},
      {*out, &linked, "AddRing: port0->Linked()"},
      {*out, &strange, "AddRing: !_ports.back()->Link(*port0)"},
  };
  for (const auto& known : cases) {
    console.Clear();
    EXPECT_FALSE(known.pipeline.LinkFrom(known.port));
    EXPECT_THAT(console.Failures(), ElementsAre(known.failure, "beforeLinkFrom: !AddRing(port)"));
    EXPECT_TRUE(HostState(known.pipeline).Ports().empty());
  }
}

}  // namespace
}  // namespace nimbo::test
