#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>

#include "tests/plugin/rtmp/PluginFixture.h"

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

TEST_F(PusherReconnect, NewSessionStartsWithBothSequenceHeaders) {
  for (const Reaction end : {Reaction::Close, Reaction::Reset}) {
    IngestServer server({{{{Point::Media, end, 8}}}, {}});
    Pusher pusher(server.Url(), Configuration());
    console.Clear();
    ASSERT_TRUE(pusher.SetStatus("play"));
    ASSERT_TRUE(PushUntilMedia(server, 1));
    EXPECT_EQ(server.Connections(), 2u);
    ExpectHeadersFirst(server.Get(0));
    ExpectHeadersFirst(server.Get(1));
    EXPECT_EQ(pusher.Get("rtmp_sts"), "true");

    std::vector<std::string> told;
    for (const ConsoleLine& line : console.Lines()) {
      if (line.function == "SendLoop") told.push_back(line.colour + line.text);
    }
    EXPECT_THAT(told, testing::ElementsAre("1push pkt fail,try to reconnect",
                                           "2reconnect success,continue"));
    clock = 0;
  }
}

TEST_F(PusherReconnect, ServerThatIsDownIsTriedUntilItIsBack) {
  IngestServer server;
  Pusher pusher(server.Url(), Configuration());
  ASSERT_TRUE(pusher.SetStatus("play"));
  ASSERT_TRUE(PushUntilMedia(server, 0));
  server.StopListening();
  server.Reset(0);
  constexpr char Failed[] = "RTMP_Connect(_rtmp, __null) == 0";
  ASSERT_TRUE(PushUntil([&] { return console.Count(Failed) >= 2; }));
  EXPECT_EQ(pusher.Get("rtmp_sts"), "false");
  EXPECT_EQ(console.Count("push pkt fail,try to reconnect"), console.Count(Failed));
  server.Listen();
  ASSERT_TRUE(PushUntilMedia(server, 1));
  ExpectHeadersFirst(server.Get(1));
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
  Script stall{{{Point::Media, Reaction::Stall, 5}}};
  stall.receiveBuffer = 65536;
  IngestServer server({stall, {}});
  Pusher pusher(server.Url(), Configuration());
  ASSERT_TRUE(pusher.SetStatus("play"));
  pushSize = 400000;
  // While the send hangs, the ring runs ahead, and the property tells so without waiting for it.
  EXPECT_TRUE(PushUntil([&] { return std::stoi(pusher.Get("rtmp_quality")) > 0; }));
  pushSize = 100;
  ASSERT_TRUE(PushUntilMedia(server, 1));
  ExpectHeadersFirst(server.Get(1));
}

TEST_F(PusherReconnect, WhatTheServerSaysMeanwhileDoesNotDisturb) {
  IngestServer server;
  Pusher pusher(server.Url(), Configuration());
  ASSERT_TRUE(pusher.SetStatus("play"));
  ASSERT_TRUE(PushUntilMedia(server, 0));
  for (int i = 0; i < 2000; ++i) {
    server.Send(0, EncodeMessage(2, UserControlMessage, 0, {0, 6, 0, 0, 0, 1}));  // ping
    server.Send(0, EncodeMessage(2, AcknowledgementMessage, 0, {0, 0, 0, 1}));
  }
  server.Send(0, {0x03, 0, 0, 0, 0xFF});  // the start of a message that never ends
  const std::size_t sent = server.Get(0).mediaCount;
  EXPECT_TRUE(PushUntil([&] { return server.Get(0).mediaCount > sent + 10; }));
  EXPECT_EQ(server.Connections(), 1u);
  pusher.Release();
  ASSERT_TRUE(server.WaitForEnd(0));
  EXPECT_FALSE(server.Get(0).OfType(UserControlMessage).empty());
}

std::size_t OpenDescriptors() {
  const std::filesystem::directory_iterator list("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(list), end(list)));
}

TEST_F(PusherReconnect, ManyReconnectionsLeaveNoDescriptorsBehind) {
  constexpr std::size_t Rounds = 30;
  IngestServer server({{{{Point::Media, Reaction::Reset, 3}}}});
  Pusher pusher(server.Url(), Configuration());
  ASSERT_TRUE(pusher.SetStatus("play"));
  std::vector<std::size_t> counts;
  for (std::size_t i = 0; i < Rounds; ++i) {
    ASSERT_TRUE(PushUntil([&] { return server.Connections() > i; }));
    ASSERT_TRUE(server.WaitForPublish(i));
    counts.push_back(OpenDescriptors());
  }
  EXPECT_LE(counts.back(), counts[1] + 2);
}

TEST_F(PusherReconnect, PropertiesAreReadFromAnyThreadAtAnyTime) {
  IngestServer server({{{{Point::Media, Reaction::Reset, 10}}}, {}});
  Pusher pusher(server.Url(), Configuration());
  std::atomic<bool> stop{false};
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&] {
      while (!stop) {
        const std::string status = pusher.Get("rtmp_sts");
        EXPECT_TRUE(status == "true" || status == "false") << status;
        const int quality = std::stoi(pusher.Get("rtmp_quality"));
        EXPECT_GE(quality, 0);
        std::this_thread::yield();
      }
    });
  }
  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(pusher.SetStatus("play"));
    EXPECT_TRUE(PushUntilMedia(server, server.Connections() - (round == 0 ? 0 : 1)));
    EXPECT_TRUE(pusher.SetStatus("null"));
  }
  stop = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(pusher.Get("rtmp_sts"), "false");
}

}  // namespace
}  // namespace nimbo::test
