#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/stream/ControlQueue.h"
#include "nimbo/stream/element.h"
#include "plugin/bytes/NalUnits.h"
#include "plugin/live/EleRtmpLive.h"
#include "tests/support/ConsoleCapture.h"
#include "tests/support/IngestServer.h"
#include "tests/support/MediaSamples.h"

namespace nimbo::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr std::uint8_t DataMessage = 18;

std::string TextOf(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

Bytes LengthPrefixed(const std::vector<Bytes>& units) {
  Bytes all;
  for (const Bytes& unit : units) {
    AppendBig(all, unit.size(), 4);
    Append(all, unit);
  }
  return all;
}

class Live : public testing::Test {
 protected:
  Live() {
    static base::IClass* const registered = plugin::live::RegisterEleRtmpLiveClass();
    EXPECT_TRUE(registered);
    client = stream::IElement::New("rtmp-live", "live", nullptr, nullptr);
  }
  ~Live() override {
    client->Release();
    stream::ControlQueue::Global().Run();
  }

  bool Open(const std::string& url) {
    return client->Set("url", url.c_str()) && client->StatusSet("play");
  }
  std::string Get(const char* property) {
    std::string value;
    return client->GetStr(property, value) ? value : "unreadable";
  }
  /// A media that tells all; it is presented `later` microseconds behind its decode time.
  static Held<stream::Media> Media(const char* codec, const Bytes& config, int later = 0) {
    Held<stream::Media> media(new stream::Media(codec));
    media->SetBytes("config", config.data(), config.size());
    media->SetUnsigned("iconfig", static_cast<unsigned>(config.size()));
    if (later) media->SetInt("cto", later);
    return media;
  }
  bool Receive(const Bytes& bytes, stream::IMedia& media, std::int64_t time, bool key = true) {
    std::uint32_t& number = std::string(media.Codec()) == "h264" ? pictures : others;
    const auto packet = NewPacket({bytes, key, time * Millisecond, ++number, &media});
    return client->ReceivePacket(*packet, nullptr);
  }

  ConsoleCapture console;
  IngestServer server;
  stream::IElement* client;
  std::uint32_t pictures = 0;
  std::uint32_t others = 0;
};

TEST_F(Live, AStreamArrivesAsItIs) {
  const Bytes config = {1, 100, 0, 31, 0xFF, 0xE0, 0};
  const Bytes changed = {1, 77, 0, 30, 0xFF, 0xE0, 0};
  const Bytes heAac = {0x2B, 0x11, 0x88, 0x00};
  const auto key = Media("h264", config, 66000);
  key->SetInt("w", 320);
  const auto later = Media("h264", config, 100999);
  const auto other = Media("h264", changed);
  const auto sound = Media("aac", heAac);
  const std::vector<Bytes> units = {Sps, Pps, Nal(Sei, 7), Nal(IdrSlice, 300), Nal(IdrSlice, 5000)};
  const Bytes slices = AnnexB({Nal(InterSlice, 20), Nal(InterSlice, 30)}, 3);
  const Bytes frame = {0x21, 0x10, 0x04};

  ASSERT_TRUE(Open(server.Url()));
  EXPECT_TRUE(
      Receive(slices, *later, 990, false));  // nothing can be decoded in front of a key frame
  EXPECT_TRUE(Receive(AnnexB(units), *key, 1000));
  EXPECT_TRUE(Receive(frame, *sound, 1010));
  EXPECT_TRUE(Receive(slices, *later, 1033, false));
  EXPECT_TRUE(Receive(AnnexB({Nal(IdrSlice, 40)}), *other, 1066));
  pictures += 1;  // one is lost, and what follows up to the next key frame is of no use
  EXPECT_TRUE(Receive(slices, *other, 1133, false));
  EXPECT_EQ(Get("rtmp_quality"), "1");
  EXPECT_TRUE(Receive(AnnexB({Nal(IdrSlice, 40)}), *other, 1166));
  EXPECT_EQ(Get("rtmp_quality") + Get("dropped"), "02");
  ASSERT_TRUE(server.WaitForMedia(0, 8));
  EXPECT_TRUE(client->StatusSet("null"));
  ASSERT_TRUE(server.WaitForEnd(0));

  const Record record = server.Get(0);
  EXPECT_EQ(record.error, "");
  EXPECT_EQ(record.OfType(SetChunkSizeMessage).at(0).body, Bytes({0, 0, 0x10, 0}));
  const auto told = record.OfType(DataMessage);
  ASSERT_EQ(told.size(),
            3u);  // when the picture began, and the sound, and when the picture changed
  EXPECT_THAT(TextOf(told[0].body), HasSubstr("onMetaData"));
  EXPECT_THAT(TextOf(told[0].body), HasSubstr("width"));
  EXPECT_THAT(TextOf(told[0].body), Not(HasSubstr("height")));  // it is not known
  EXPECT_THAT(TextOf(told[0].body), Not(HasSubstr("audio")));
  EXPECT_THAT(TextOf(told[1].body), HasSubstr("audiocodecid"));

  const auto whole = [](Bytes head, const Bytes& tail) {
    Append(head, tail);
    return head;
  };
  // Frame type and codec, packet type, composition time in ms.
  const std::vector<std::pair<std::uint32_t, Bytes>> expected = {
      {0, whole({0x17, 0, 0, 0, 0}, config)},
      {0, whole({0x17, 1, 0, 0, 66}, LengthPrefixed(units))},
      {33, whole({0x27, 1, 0, 0, 100}, LengthPrefixed({Nal(InterSlice, 20), Nal(InterSlice, 30)}))},
      {66, whole({0x17, 0, 0, 0, 0}, changed)},
      {66, whole({0x17, 1, 0, 0, 0}, LengthPrefixed({Nal(IdrSlice, 40)}))},
      {166, whole({0x17, 1, 0, 0, 0}, LengthPrefixed({Nal(IdrSlice, 40)}))}};
  const auto video = record.OfType(VideoMessage);
  ASSERT_EQ(video.size(), expected.size());
  for (std::size_t i = 0; i < video.size(); ++i) {
    EXPECT_EQ(video[i].time, expected[i].first) << i;
    EXPECT_EQ(video[i].body, expected[i].second) << i;
  }
  EXPECT_EQ(video[1].formats.size(), 2u);  // chunks of 4096 bytes
  const auto audio = record.OfType(AudioMessage);
  ASSERT_EQ(audio.size(), 2u);
  EXPECT_EQ(audio[0].body, whole({0xAF, 0}, heAac));
  EXPECT_EQ(audio[1].body, whole({0xAF, 1}, frame));
  EXPECT_EQ(audio[1].time, 10u);
}

TEST_F(Live, TheServerIsAnsweredAndFollowed) {
  IngestServer next;
  ASSERT_TRUE(Open(server.Url()));
  // A window of 4000 bytes (RTMP 1.0, 5.4.4), and a ping (7.1.7) in the midst of much else.
  server.Send(0, EncodeMessage(2, 5, 0, {0, 0, 0x0F, 0xA0}));
  server.Send(0, EncodeMessage(2, DataMessage, 0, Bytes(100, 7)));
  server.Send(0, EncodeMessage(2, UserControlMessage, 0, {0, 6, 1, 2, 3, 4}));
  const auto video = VideoMedia();
  for (int i = 0; i < 40; ++i) server.Send(0, EncodeMessage(2, DataMessage, 0, Bytes(100, 7)));
  std::int64_t time = 0;
  const auto publishUntil = [&](auto condition) {
    return Eventually([&] {
      EXPECT_TRUE(Receive(AccessUnit(true), *video, time += 20));
      return condition();
    });
  };
  Record record;
  ASSERT_TRUE(publishUntil([&] {
    record = server.Get(0);
    return !record.OfType(UserControlMessage).empty() &&
           !record.OfType(AcknowledgementMessage).empty();
  }));
  EXPECT_EQ(record.OfType(UserControlMessage)[0].body, Bytes({0, 7, 1, 2, 3, 4}));
  EXPECT_GE(ReadBig(record.OfType(AcknowledgementMessage)[0].body.data(), 4), 2000u);
#ifndef EMULATED  // an emulator does not tell what the kernel does of connections
  EXPECT_NE(Get("acknowledged"), "0");
#endif

  // Enhanced RTMP v2, reconnect request; the stream's name stays.
  Bytes request = EncodeCommand("onStatus", 0, {});
  Append(request, {3});  // an object
  const std::string to = "rtmp://127.0.0.1:" + std::to_string(next.Port()) + "/other";
  for (const auto& [name, value] : std::vector<std::pair<std::string, std::string>>{
           {"tcUrl", to},
           {"code", "NetConnection.Connect.ReconnectRequest"},
           {"level", "status"}}) {
    AppendBig(request, name.size(), 2);
    Append(request, {name.begin(), name.end()});
    request.push_back(2);
    AppendBig(request, value.size(), 2);
    Append(request, {value.begin(), value.end()});
  }
  Append(request, {0, 0, 9});
  server.Send(0, EncodeMessage(2, CommandMessage, 0, request));
  ASSERT_TRUE(publishUntil([&] { return next.Connections() > 0; }));
  ASSERT_TRUE(Receive(AccessUnit(true), *video, time += 20));
  ASSERT_TRUE(next.WaitForMedia(0, 2));
  const Record followed = next.Get(0);
  EXPECT_EQ(followed.OfType(VideoMessage).at(0).body.at(1), 0);
  EXPECT_EQ(followed.OfType(VideoMessage).at(1).time, 0u);
  EXPECT_THAT(followed.commands.at(0).texts, testing::Contains("app=other"));
}

TEST_F(Live, WhatNeedsEnhancedRtmpIsSentWhereItIsAskedFor) {
  const Bytes record = {1, 2, 3};
  const auto hevc = Media("hevc", record, 40000);
  const auto opus = Media("opus", record);
  const Bytes picture = AnnexB({Nal(0x26, 30)});

  ASSERT_TRUE(Open(server.Url()));
  EXPECT_TRUE(Receive(picture, *hevc, 0));
  EXPECT_TRUE(client->StatusSet("null"));
  EXPECT_EQ(server.Get(0).mediaCount, 0u);
  EXPECT_THAT(console.Text(), HasSubstr("set enhanced=true"));
  const auto connectOf = [this](std::size_t connection) {
    return TextOf(server.Get(connection).OfType(CommandMessage).at(0).body);
  };
  EXPECT_THAT(connectOf(0), Not(HasSubstr("fourCcList")));

  ASSERT_TRUE(client->Set("enhanced", "true"));
  ASSERT_TRUE(client->StatusSet("play"));
  EXPECT_TRUE(Receive(picture, *hevc, 0));
  EXPECT_TRUE(Receive({9, 9}, *opus, 0));
  ASSERT_TRUE(server.WaitForMedia(1, 4));
  EXPECT_THAT(connectOf(1), HasSubstr("fourCcList"));
  EXPECT_THAT(console.Text(), HasSubstr("does not say that it knows Enhanced RTMP"));
  const auto media = server.Get(1).Media();
  EXPECT_EQ(media[0].body, Bytes({0x90, 'h', 'v', 'c', '1', 1, 2, 3}));
  EXPECT_EQ(Bytes(media[1].body.begin(), media[1].body.begin() + 12),
            Bytes({0x91, 'h', 'v', 'c', '1', 0, 0, 40, 0, 0, 0, 30}));
  EXPECT_EQ(media[2].body, Bytes({0x90, 'O', 'p', 'u', 's', 1, 2, 3}));
  EXPECT_EQ(media[3].body, Bytes({0x91, 'O', 'p', 'u', 's', 9, 9}));
}

TEST(NalUnits, AreFoundWhateverLiesBetweenThem) {
  const struct {
    Bytes annexB;
    Bytes expected;
  } cases[] = {
      {{0, 0, 1, 0x65}, {0, 0, 0, 1, 0x65}},
      {{9, 0, 0, 0, 1, 7, 0, 0, 0, 0, 1, 8, 0}, {0, 0, 0, 1, 7, 0, 0, 0, 1, 8}},
      {{0, 0, 1, 0, 0, 1, 0, 0, 1}, {}},
      {{1, 0, 1, 0, 0}, {}},
      {{0, 0, 1, 1, 0, 0, 1, 1, 0, 0, 1, 1}, {0, 0, 0, 1, 1, 0, 0, 0, 1, 1, 0, 0, 0, 1, 1}},
      {{}, {}}};
  for (const auto& [annexB, expected] : cases) {
    Bytes out(plugin::LengthPrefixedBound(annexB.size()));
    out.resize(plugin::WriteLengthPrefixed(out.data(), {annexB.data(), annexB.size()}));
    EXPECT_EQ(out, expected);
  }
}

}  // namespace
}  // namespace nimbo::test
