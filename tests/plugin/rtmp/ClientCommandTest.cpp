#include <stdexcept>

#include "base/reflect/Class.h"
#include "nimbo/stream/application.h"
#include "nimbo/stream/factory.h"
#include "tests/plugin/rtmp/PluginFixture.h"

namespace nimbo::test {
namespace {

using testing::ElementsAre;

class ClientCommand : public FeedTest {
 protected:
  ~ClientCommand() override {
    if (Exists("cam")) Stop("cam");
  }
  int Start(const char* name, const char* url, const char* cfgs) {
    return Run("fwRtmpClientStart", name, url, cfgs);
  }
  int Stop(const char* name) { return Run("fwRtmpClientStop", name, "ignored", nullptr); }
  /// What a start of "cam" tells on its way.
  static std::vector<std::string> Progress(const std::string& url, const std::string& cfgs) {
    const std::string start = "fwRtmpClientStart: ";
    return {"2 18/" + start + "app_name=cam",
            "2 24/" + start + "app_cfgs=" + cfgs + "+rtmp-client:link=all,url=" + url,
            "2 30/" + start + "(void*)client=ADDRESS"};
  }
  static bool Exists(const char* name) {
    return stream::Factory::Globle().Find<base::object>(name, true) != nullptr;
  }

 private:
  static int Run(const char* function, const char* p0, const char* p1, const char* p2) {
    return PluginFunction<int (*)(const char*, const char*, const char*)>(function)(p0, p1, p2);
  }
};

TEST_F(ClientCommand, StartReportsWhatFailedAndLeavesNothing) {
  const UnusedPort unused;
  const std::string away = unused.Url();
  const std::string rings = Configuration();
  const char* const cfg = rings.c_str();
  const struct {
    const char *name, *url, *cfgs, *line;
    std::size_t steps;  ///< progress lines in front of it
  } cases[] = {
      {nullptr, away.c_str(), cfg, "12/fwRtmpClientStart: !name", 0},
      {"cam", nullptr, cfg, "13/fwRtmpClientStart: !url", 0},
      {"cam", away.c_str(), nullptr, "14/fwRtmpClientStart: !cfgs", 0},
      {"", away.c_str(), cfg, "17/fwRtmpClientStart: app_name.empty(),Invalid name", 0},
      {"cam", away.c_str(), "no-such-class",
       "30/fwRtmpClientStart: !client,failed to create rtmp client", 2},
      {"cam", away.c_str(), cfg,
       "33/fwRtmpClientStart: !client->StatusSet(\"play\"),Rtmp client named cam failed to start",
       3},
  };
  for (const auto& known : cases) {
    EXPECT_EQ(Start(known.name, known.url, known.cfgs), 0);
    std::vector<std::string> lines;
    if (known.steps > 0) lines = Progress(known.url, known.cfgs);
    lines.resize(known.steps);
    lines.emplace_back(known.line);
    EXPECT_EQ(Told(), lines);
    EXPECT_FALSE(Exists("cam"));
  }
}

TEST_F(ClientCommand, StopReportsWhomItDoesNotFind) {
  EXPECT_THROW(Stop(nullptr), std::logic_error);
  EXPECT_EQ(Stop(""), 0);
  EXPECT_THAT(Told(), ElementsAre("41/fwRtmpClientStop: app_name.empty(),Invalid name"));
  Pusher other("rtmp://127.0.0.1/live/stream", Configuration());  // found, but no client
  const std::string name = (*other).Name();
  EXPECT_EQ(Stop(name.c_str()), 0);
  EXPECT_THAT(
      Told(),
      ElementsAre("2 41/fwRtmpClientStop: app_name=" + name,
                  "43/fwRtmpClientStop: !client,Did not find the rtmp client named " + name));
}

TEST_F(ClientCommand, ClientPlaysUnderItsNameUntilItIsStopped) {
  IngestServer server;
  ASSERT_EQ(Start("cam", server.Url().c_str(), Configuration().c_str()), 1);
  EXPECT_EQ(Told(), Progress(server.Url(), Configuration()));
  EXPECT_EQ(Start("cam", server.Url("other").c_str(), Configuration().c_str()), 0);
  EXPECT_THAT(Told(), ElementsAre("2 18/fwRtmpClientStart: app_name=cam",
                                  "21/fwRtmpClientStart: exist,The rtmp client named cam already "
                                  "exists"));
  PushVideo(true, 0);
  PushAudio(0);
  ASSERT_TRUE(server.WaitForMedia(0, 4));
  EXPECT_THAT(Summary(server.Get(0)), ElementsAre("v0", "V0", "a0", "A0"));
  EXPECT_EQ(Stop("cam"), 1);
  EXPECT_EQ(console.Lines().back().line, 44);  // behind all that the client said at its end
  EXPECT_THAT(Told(), ElementsAre("2 41/fwRtmpClientStop: app_name=cam",
                                  "2 44/fwRtmpClientStop: (void*)client=ADDRESS"));
  ASSERT_TRUE(server.WaitForEnd(0));
  EXPECT_FALSE(Exists("cam"));
  EXPECT_EQ(Start("cam", server.Url().c_str(), Configuration().c_str()), 1);
  EXPECT_EQ(server.Connections(), 2u);
}

TEST_F(ClientCommand, OneSourceFeedsTwoClientsWhole) {
  IngestServer servers[2];
  const std::string first = Configuration() +
                            "+rtmp-client:link=all,vcopy=false,acopy=false,url={" +
                            servers[0].Url() + "}";
  ASSERT_EQ(Start("cam", servers[1].Url().c_str(), first.c_str()), 1);
  constexpr int Packets = 50;
  std::vector<std::string> expected = {"v0", "V0", "a0", "A0"};
  for (int i = 0; i < Packets; ++i) {
    PushVideo(i == 0, i, 3000);
    PushAudio(i);
    if (i == 0) continue;
    for (const char* kind : {"V", "A"}) expected.push_back(kind + std::to_string(i));
  }
  for (IngestServer& server : servers) {
    ASSERT_TRUE(server.WaitForMedia(0, expected.size()));
    EXPECT_EQ(Summary(server.Get(0)), expected);
  }
}

}  // namespace
}  // namespace nimbo::test
