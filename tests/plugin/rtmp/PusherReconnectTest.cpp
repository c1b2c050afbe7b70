#include <algorithm>

#include "tests/plugin/rtmp/PluginFixture.h"
#include "tests/support/Lateness.h"

namespace nimbo::test {
namespace {

class PusherReconnect : public FeedTest {
 protected:
  /// Pushes until the given connection carries frames of both streams.
  bool PushUntilMedia(IngestServer& server, std::size_t connection) {
    return PushUntil([&] {
      return server.Connections() > connection && server.Get(connection).mediaCount >= 6;
    });
  }
};

/// The first message of each type is its sequence header.
void ExpectHeadersFirst(const Record& record) {
  for (const std::uint8_t type : {AudioMessage, VideoMessage}) {
    const std::vector<Message> messages = record.OfType(type);
    ASSERT_GE(messages.size(), 2u);
    EXPECT_EQ(messages[0].body.at(1), 0);
    EXPECT_EQ(messages[0].time, 0u);
    EXPECT_EQ(messages[1].body.at(1), 1);
  }
}

TEST_F(PusherReconnect, ServerThatIsDownIsTriedUntilItIsBack) {
  IngestServer server;
  Pusher pusher(server.Url(), Configuration());
  ASSERT_TRUE(pusher.SetStatus("play"));
  ASSERT_TRUE(PushUntilMedia(server, 0));
  server.StopListening();
  const Lateness lateness;
  const auto lost = std::chrono::steady_clock::now();
  server.Reset(0);
  constexpr char Failed[] = "RTMP_Connect(_rtmp, __null) == 0";
  ASSERT_TRUE(PushUntil([&] { return console.Count(Failed) >= 3; }));
  const auto took = std::chrono::steady_clock::now() - lost;
  constexpr std::chrono::seconds TwoPauses{2};
  EXPECT_GE(took, TwoPauses);
  EXPECT_LT(took, TwoPauses + lateness.Slack());
  EXPECT_EQ(pusher.Get("rtmp_sts"), "false");
  EXPECT_EQ(console.Count("push pkt fail,try to reconnect"), console.Count(Failed));
  server.Listen();
  ASSERT_TRUE(PushUntilMedia(server, 1));
  for (const std::size_t connection : {0U, 1U}) ExpectHeadersFirst(server.Get(connection));
  EXPECT_EQ(console.Lines().back().colour + console.Lines().back().text,
            "2reconnect success,continue");
  EXPECT_EQ(pusher.Get("rtmp_sts"), "true");
  server.StopListening();
  server.Reset(1);
  console.Clear();
  ASSERT_TRUE(PushUntil([&] { return console.Count(Failed) > 0; }));
  EXPECT_TRUE(pusher.SetStatus("null"));
  EXPECT_EQ(pusher.Get("rtmp_sts"), "false");
}

TEST_F(PusherReconnect, ServerThatStopsReadingIsLeft) {
  if (StockTransport) GTEST_SKIP() << "librtmp alone would wait for minutes";
  Script stall{{{Point::Media, Reaction::Stall, 1}}};
  stall.receiveBuffer = 65536;
  IngestServer server({stall, {}});
  Pusher pusher(server.Url(), Configuration());
  ASSERT_TRUE(pusher.SetStatus("play"));
  // While the send of a large frame hangs, the ring runs ahead, and the property tells so without
  // waiting for it: 16 of the 64 frames that a ring holds.
  PushVideo(true, 0, 16000000);
  for (int i = 0; i < 16; ++i) PushVideo(true, 0);
  EXPECT_TRUE(Eventually([&] { return pusher.Get("rtmp_quality") == "25"; }));
  ASSERT_TRUE(PushUntilMedia(server, 1));
  ExpectHeadersFirst(server.Get(1));
}

}  // namespace
}  // namespace nimbo::test
