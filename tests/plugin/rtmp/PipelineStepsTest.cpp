#include "base/reflect/Class.h"
#include "base/reflect/TClass.h"
#include "host/stream/Port.h"
#include "host/stream/State.h"
#include "nimbo/stream/sink.h"
#include "tests/plugin/rtmp/PluginFixture.h"

namespace nimbo::test {
namespace {

/// Stands in front of a class that the pipeline makes its elements of, because a class of exactly
/// the name asked for is found first. The test chooses the step that it refuses.
template <int Number>
class StandIn : public stream::ISink {
 public:
  static inline std::string refused;

  bool Initialize(const char* type, const char* name, const char* cfgs,
                  base::object* owner) override {
    return refused != "Initialize" && ISink::Initialize(type, name, cfgs, owner);
  }
  stream::IPort* PortAdd(const char* caps, const char* direction) override {
    return refused == "PortAdd" ? nullptr : ISink::PortAdd(caps, direction);
  }
  bool Link(IElement& sink) override { return refused != "Link" && ISink::Link(sink); }

  static void Register(const char* name) { base::TClass<>::Register<StandIn>(name, {}); }
};
using Synchroniser = StandIn<0>;
using Client = StandIn<1>;

using PipelineSteps = PluginTest;

TEST_F(PipelineSteps, EachTellsWhenItFailedAndLeavesNoBranch) {
  Synchroniser::Register("ele-sync");
  Client::Register("EleRtmpClient");
  const struct {
    const char *synchroniser, *client;
    std::vector<std::string> failures;
  } cases[] = {
      {"Initialize", "", {"Initialize: !ctl"}},
      {"", "Initialize", {"Initialize: !client"}},
      {"", "PortAdd", {"AddRing: !_rtmp_client->PortAdd(caps,\"in\")", ""}},
      {"PortAdd", "", {"AddRing: !src->Link(*_av_sync)", ""}},
      {"Link", "", {"AddRing: !_av_sync->Link(*_rtmp_client),true", ""}},
  };
  for (auto known : cases) {
    const bool made = known.failures.size() > 1;
    if (made) known.failures.back() = "beforeLinkFrom: !AddRing(port)";
    Synchroniser::refused = known.synchroniser;
    Client::refused = known.client;
    console.Clear();
    const auto out = New<stream::Pipeline>("pipeline-rtmp-client-muxer-sink", "out");
    ASSERT_EQ(out != nullptr, made);
    stream::Port output(nullptr, "h264", true);
    if (made) {
      EXPECT_FALSE(out->LinkFrom(&output));
      EXPECT_FALSE(output.Linked());
      EXPECT_EQ(HostState(*out).elements.size(), 2u);
    }
    EXPECT_EQ(console.Failures(), known.failures);
  }
}

}  // namespace
}  // namespace nimbo::test
