#include <algorithm>
#include <cctype>
#include <cstdio>
#include <regex>

#include "tests/plugin/rtmp/PluginFixture.h"

namespace nimbo::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using PusherWire = FeedTest;

// Header and body of each message, one a line: connect, releaseStream, FCPublish, createStream,
// publish, the end of the stream, FCUnpublish, deleteStream.
constexpr char PlainSetUp[] =
    "[03][00][00][00][00][00]Y[14][00][00][00][00][02][00][07]connect[00]?[f0][00][00][00][00][00]"
    "[00][03][00][03]app[02][00][03]app[00][04]type[02][00][0a]nonprivate[00][05]tcUrl[02][00][1a]"
    "rtmp://127.0.0.1:#/app[00][00][09]\n"
    "C[00][00][00][00][00]([14][02][00][0d]releaseStream[00]@[00][00][00][00][00][00][00][05][02]"
    "[00][0b]key?token=1\n"
    "C[00][00][00][00][00]$[14][02][00][09]FCPublish[00]@[08][00][00][00][00][00][00][05][02][00]"
    "[0b]key?token=1\n"
    "C[00][00][00][00][00][19][14][02][00][0c]createStream[00]@[10][00][00][00][00][00][00][05]\n"
    "[04][00][00][00][00][00])[14][01][00][00][00][02][00][07]publish[00]@[14][00][00][00][00][00]"
    "[00][05][02][00][0b]key?token=1[02][00][04]live\n"
    "B[00][00][00][00][00][06][04][00][01][00][00][00][14]\n"
    "C[00][00][00][00][00]&[14][02][00][0b]FCUnpublish[00]@[18][00][00][00][00][00][00][05][02]"
    "[00][0b]key?token=1\n"
    "C[00][00][00][00][00]\"[14][02][00][0c]deleteStream[00]@[1c][00][00][00][00][00][00][05][00]?"
    "[f0][00][00][00][00][00][00]\n";
// The same with the answer to a ping, and _checkbw.
constexpr char ChattySetUp[] =
    "[03][00][00][00][00][00]Y[14][00][00][00][00][02][00][07]connect[00]?[f0][00][00][00][00][00]"
    "[00][03][00][03]app[02][00][03]app[00][04]type[02][00][0a]nonprivate[00][05]tcUrl[02][00][1a]"
    "rtmp://127.0.0.1:#/app[00][00][09]\n"
    "B[00][00][00][00][00][06][04][00][07][01][02][03][04]\n"
    "[03][00][00][00][00][00][15][14][00][00][00][00][02][00][08]_checkbw[00]@[00][00][00][00][00]"
    "[00][00][05]\n"
    "C[00][00][00][00][00]([14][02][00][0d]releaseStream[00]@[08][00][00][00][00][00][00][05][02]"
    "[00][0b]key?token=1\n"
    "C[00][00][00][00][00]$[14][02][00][09]FCPublish[00]@[10][00][00][00][00][00][00][05][02][00]"
    "[0b]key?token=1\n"
    "C[00][00][00][00][00][19][14][02][00][0c]createStream[00]@[14][00][00][00][00][00][00][05]\n"
    "[04][00][00][00][00][00])[14][01][00][00][00][02][00][07]publish[00]@[18][00][00][00][00][00]"
    "[00][05][02][00][0b]key?token=1[02][00][04]live\n"
    "[c2][00][01][00][00][00][14]\n"
    "C[00][00][00][00][00]&[14][02][00][0b]FCUnpublish[00]@[1c][00][00][00][00][00][00][05][02]"
    "[00][0b]key?token=1\n"
    "C[00][00][00][00][00]\"[14][02][00][0c]deleteStream[00]@[20][00][00][00][00][00][00][05][00]?"
    "[f0][00][00][00][00][00][00]\n";

/// Bytes as text: those of a message that can be printed as they are, all others as two digits in
/// brackets; numbers of ports, which differ from run to run, as "#".
std::string Shown(const Message& message) {
  Bytes bytes = message.header;
  Append(bytes, message.body);
  std::string text;
  for (const unsigned char byte : bytes) {
    char digits[8];
    std::snprintf(digits, sizeof digits, "[%02x]", byte);
    text += std::isgraph(byte) ? std::string(1, static_cast<char>(byte)) : digits;
  }
  return std::regex_replace(text, std::regex("127\\.0\\.0\\.1:\\d+"), "127.0.0.1:#");
}

// The build with librtmp's own set-up has the same expectations.
TEST_F(PusherWire, TheSetUpIsByteForByteThatOfLibrtmp) {
  // A server that says all that common ones say, in front of its answers.
  Bytes connected = EncodeMessage(2, 5, 0, {0, 0x26, 0x25, 0xA0});
  Append(connected, EncodeMessage(2, 6, 0, {0, 0x26, 0x25, 0xA0, 2}));
  Append(connected, EncodeMessage(2, SetChunkSizeMessage, 0, {0, 0, 0x10, 0}));
  Append(connected, EncodeMessage(2, UserControlMessage, 0, {0, 6, 1, 2, 3, 4}));
  Append(connected, EncodeMessage(3, CommandMessage, 0, EncodeCommand("onBWDone", 0, {5})));
  Append(
      connected,
      EncodeMessage(3, CommandMessage, 0,
                    EncodeCommand("_result", 1,
                                  EncodeInformation("status", "NetConnection.Connect.Success"))));
  Rule chatty = {Point::Connect, Reaction::Say};
  chatty.say = connected;
  IngestServer server({Script{}, Script{{chatty}}});
  std::string said[2];
  for (std::size_t connection : {0u, 1u}) {
    Pusher pusher(server.Url("app", "key?token=1"), Configuration());
    ASSERT_TRUE(pusher.SetStatus("play"));
    ASSERT_TRUE(server.WaitForPublish(connection));
    ASSERT_TRUE(pusher.SetStatus("null"));
    ASSERT_TRUE(server.WaitForEnd(connection));
    EXPECT_EQ(
        console.Count("connect server:" + server.Url("app", "key?token=1") + "," + Configuration()),
        connection + 1);
    const Record record = server.Get(connection);
    EXPECT_EQ(record.error, "");
    EXPECT_EQ(record.greeting.at(0), 3);
    EXPECT_EQ(Bytes(record.greeting.begin() + 5, record.greeting.begin() + 9), Bytes(4));
    // The server's part is the publisher's own, which comes back once more.
    EXPECT_TRUE(std::equal(record.echo.begin(), record.echo.end(), record.greeting.begin() + 1));
    for (const Message& message : record.messages) said[connection] += Shown(message) + "\n";
  }
  EXPECT_EQ(said[0], PlainSetUp);
  EXPECT_EQ(said[1], ChattySetUp);
  EXPECT_THAT(console.Failures(), IsEmpty());
}

TEST_F(PusherWire, MessagesCarryFlvTagBodiesInFullHeaders) {
  IngestServer server;
  Pusher pusher(server.Url(), Configuration());
  video.Push(AnnexB({Sps, Pps, Nal(IdrSlice, 4)}), true, 1500 * Millisecond, 1);
  video.Push(AnnexB({Nal(InterSlice, 3)}, 3), false, 1541 * Millisecond - 1, 2);
  audio.Push(AdtsFrame(10), true, 1520 * Millisecond, 1);
  ASSERT_TRUE(pusher.SetStatus("play"));
  ASSERT_TRUE(server.WaitForMedia(0, 5));

  const std::vector<Message> media = server.Get(0).Media();
  ASSERT_EQ(media.size(), 5u);
  const struct {
    Bytes header;
    Bytes body;
  } expected[] = {
      {{0x04, 0, 0, 0, 0, 0, 29, 9, 1, 0, 0, 0},  // channel 4, time, length, type, stream
       {0x17, 0x00, 0,    0,    0,                // key frame, sequence header
        0x01, 0x42, 0xC0, 0x1E, 0xFF, 0xE1,       // version, profile and level, one SPS
        0x00, 0x09, 0x67, 0x42, 0xC0, 0x1E, 0xDA, 0x04, 0x03, 0x6C, 0x80,  //
        0x01, 0x00, 0x04, 0x68, 0xCE, 0x3C, 0x80}},                        // one PPS
      {{0x04, 0x00, 0x05, 0xDC, 0, 0, 13, 9, 1, 0, 0, 0},                  // 1500 ms
       {0x17, 0x01, 0, 0, 0, 0, 0, 0, 4, 0x65, 0x81, 0x82, 0x83}},
      {{0x04, 0, 0, 0, 0, 0, 4, 8, 1, 0, 0, 0}, {0xAF, 0x00, 0x12, 0x10}},
      {{0x04, 0x00, 0x05, 0xF0, 0, 0, 5, 8, 1, 0, 0, 0},  // 1520 ms; no ADTS header
       {0xAF, 0x01, 0x87, 0x88, 0x89}},
      {{0x04, 0x00, 0x06, 0x04, 0, 0, 12, 9, 1, 0, 0, 0},  // 1540.999999 ms: cut
       {0x27, 0x01, 0, 0, 0, 0, 0, 0, 3, 0x41, 0x81, 0x82}},
  };
  for (std::size_t i = 0; i < media.size(); ++i) {
    EXPECT_EQ(media[i].header, expected[i].header) << "message " << i;
    EXPECT_EQ(media[i].body, expected[i].body) << "message " << i;
  }
}

TEST_F(PusherWire, LargeMessagesLeaveInChunksOf128Bytes) {
  IngestServer server;
  Pusher pusher(server.Url(), Configuration());
  constexpr std::size_t Big = 2000000;  // does not fit the buffer that the pusher starts with
  PushVideo(true, 0, 1000);
  PushVideo(false, 40, Big);
  PushAudio(0, 9000);  // nor does this one
  ASSERT_TRUE(pusher.SetStatus("play"));
  ASSERT_TRUE(server.WaitForMedia(0, 5));
  const Record record = server.Get(0);
  EXPECT_THAT(record.OfType(SetChunkSizeMessage), IsEmpty());
  const std::vector<Message> media = record.Media();
  for (const Message& message : media) {
    ASSERT_EQ(message.formats.size(), (message.body.size() + 127) / 128);
    EXPECT_EQ(message.formats[0], 0);
  }
  const Message& big = media.back();
  EXPECT_EQ(big.body.size(), Big + 9);
  EXPECT_EQ(ReadBig(&big.body[5], 4), Big);
  EXPECT_EQ(Bytes(big.body.begin() + 9, big.body.end()), Nal(InterSlice, Big));
}

TEST_F(PusherWire, TimeStampsPass24And32Bits) {
  const struct {
    std::int64_t time;
    std::uint32_t field;
    std::optional<std::uint32_t> extended;
  } cases[] = {
      {0xFFFFFE, 0xFFFFFE, std::nullopt}, {0xFFFFFF, 0xFFFFFF, 0xFFFFFF},
      {0x1000005, 0xFFFFFF, 0x1000005},   {0xFFFFFFFF, 0xFFFFFF, 0xFFFFFFFF},
      {0x100000000, 0, std::nullopt},     {0x100000028, 0x28, std::nullopt},
  };
  IngestServer server;
  // Between two pictures the silent sound is waited for, in all for longer than a ring lets one be
  // late.
  Pusher pusher(server.Url(), RingConfiguration({"h264-test", "aac-test"}, "RingSink:max-lag=0"));
  for (const auto& stamp : cases) PushVideo(true, stamp.time, 300);  // several chunks each
  ASSERT_TRUE(pusher.SetStatus("play"));
  ASSERT_TRUE(server.WaitForMedia(0, 1 + std::size(cases)));
  const std::vector<Message> media = server.Get(0).Media();
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_EQ(media[i + 1].timeField, cases[i].field);
    EXPECT_EQ(media[i + 1].extended, cases[i].extended);
    EXPECT_EQ(media[i + 1].time, static_cast<std::uint32_t>(cases[i].time));
  }
}

TEST_F(PusherWire, PacketsInterleaveByTimeStampVideoFirst) {
  IngestServer server;
  Pusher pusher(server.Url(), Configuration());
  for (const int time : {0, 40, 80}) PushVideo(time == 0, time);
  for (const int time : {0, 20, 40, 60, 80}) PushAudio(time);
  ASSERT_TRUE(pusher.SetStatus("play"));
  ASSERT_TRUE(server.WaitForMedia(0, 10));
  EXPECT_THAT(Summary(server.Get(0)),
              ElementsAre("v0", "V0", "a0", "A0", "A20", "V40", "A40", "A60", "V80", "A80"));
}

TEST_F(PusherWire, NoVideoIsSentBeforeTheFirstKeyFrame) {
  IngestServer server;
  Pusher pusher(server.Url(), Configuration());
  for (const int time : {0, 40, 80, 120}) PushVideo(time == 80, time);
  PushAudio(10);
  ASSERT_TRUE(pusher.SetStatus("play"));
  ASSERT_TRUE(server.WaitForMedia(0, 5));
  EXPECT_THAT(Summary(server.Get(0)), ElementsAre("a0", "A10", "v0", "V80", "V120"));
}

TEST_F(PusherWire, GapDropsFramesUntilTheNextKeyFrame) {
  IngestServer server;
  Pusher pusher(server.Url(), Configuration());
  ASSERT_TRUE(pusher.SetStatus("play"));
  const auto push = [this](std::uint32_t sequence, bool key) {
    video.Push(AccessUnit(key), key, sequence * Millisecond, sequence);
  };
  push(7, true);
  push(8, false);
  push(10, false);
  push(11, false);
  EXPECT_TRUE(Eventually([&] { return pusher.Get("rtmp_quality") == "100"; }));
  push(12, true);
  push(13, false);
  ASSERT_TRUE(server.WaitForMedia(0, 5));
  EXPECT_THAT(Summary(server.Get(0)), ElementsAre("v0", "V7", "V8", "V12", "V13"));
  EXPECT_TRUE(Eventually([&] { return pusher.Get("rtmp_quality") == "0"; }));
  EXPECT_THAT(console.Failures(), IsEmpty());
}

/// A media whose parameter sets may be null pointers, with lengths of the test's choice.
Held<stream::Media> VideoMediaOf(const Bytes* sps, const Bytes* pps, int spsSize) {
  Held<stream::Media> media(new stream::Media("h264"));
  media->SetBytes("sps", sps ? sps->data() : nullptr, sps ? sps->size() : 0);
  media->SetInt("isps", spsSize);
  media->SetBytes("pps", pps ? pps->data() : nullptr, pps ? pps->size() : 0);
  media->SetInt("ipps", 4);
  return media;
}

const std::string SpsLine = "SendH264: !sps || isps < 4 || isps > 65535,isps=";
const std::string PpsLine = "SendH264: !pps || ipps > 65535,ipps=";
const std::string AdtsLine = "SendAAC: _adts_len < 0 || _adts_len > size,_adts_len=";

TEST_F(PusherWire, HostileMediaIsRefusedWithOneLineAndTheConnectionStays) {
  struct Hostile {
    Held<stream::Media> media;
    std::string failure;  ///< empty where none is told
  } cases[] = {
      {VideoMedia(Nal(0x67, 3)), SpsLine + "3"},
      {VideoMedia(Nal(0x67, 65536)), SpsLine + "65536"},
      {VideoMedia(Sps, Nal(0x68, 65536)), PpsLine + "65536"},
      {VideoMediaOf(nullptr, &Pps, 9), SpsLine + "9"},
      {VideoMediaOf(&Sps, nullptr, 9), PpsLine + "4"},
      {VideoMediaOf(&Sps, &Pps, -1), SpsLine + "4294967295"},
      {Held<stream::Media>(new stream::Media("h264")), ""},
      {AudioMedia(-1), AdtsLine + "-1,size=20"},
      {AudioMedia(21), AdtsLine + "21,size=20"},
      {Held<stream::Media>(new stream::Media("aac")), ""},
  };
  for (Hostile& hostile : cases) {
    IngestServer server;
    Feed source("test-hostile", std::move(hostile.media));
    Pusher pusher(server.Url(), RingConfiguration({"test-hostile"}));
    ASSERT_TRUE(pusher.SetStatus("play"));
    console.Clear();
    source.Push(AnnexB({Nal(IdrSlice, 16)}), true, 0, 1);
    ASSERT_TRUE(console.WaitFor("try to reconnect"));
    std::vector<std::string> expected = {"SendLoop: push pkt fail,try to reconnect"};
    if (!hostile.failure.empty()) expected.insert(expected.begin(), hostile.failure);
    EXPECT_THAT(console.Failures(), ElementsAreArray(expected));
    EXPECT_EQ(pusher.Get("rtmp_sts"), "true");
    pusher.Release();
    ASSERT_TRUE(server.WaitForEnd(0));
    for (const Message& message : server.Get(0).Media()) EXPECT_EQ(message.body.at(1), 0);
    EXPECT_EQ(server.Connections(), 1u);
  }
}

TEST_F(PusherWire, OddPacketsAreDroppedAndTheStreamGoesOn) {
  IngestServer server;
  Pusher pusher(server.Url(), Configuration());
  const Held<stream::IMedia> unknown(new stream::Media("opus"));
  PacketForm noData{AccessUnit(true), true, 0, 1, video.Media()};
  noData.nullData = true;
  video.Push(NewPacket(noData));
  video.Push(NewPacket({AccessUnit(true), true, 0, 1, nullptr}));
  video.Push(NewPacket({AccessUnit(true), true, 0, 1, unknown.get()}));
  PushVideo(true, 40);
  noData.media = audio.Media();
  audio.Push(NewPacket(noData));
  PushAudio(40);
  audio.Push({}, true, 50 * Millisecond, 2);  // shorter than its ADTS header
  PushAudio(60, 7);                           // nothing behind it
  ASSERT_TRUE(pusher.SetStatus("play"));
  ASSERT_TRUE(server.WaitForMedia(0, 5));
  EXPECT_THAT(Summary(server.Get(0)), ElementsAre("v0", "V40", "a0", "A40", "A60"));
  EXPECT_EQ(server.Get(0).Media().back().body, (Bytes{0xAF, 0x01}));
  EXPECT_THAT(console.Failures(),
              testing::UnorderedElementsAre("SendH264: !pkt->Data()", "SendAAC: !pkt->Data()",
                                            AdtsLine + "7,size=0",
                                            "SendLoop: push pkt fail,try to reconnect"));
}

}  // namespace
}  // namespace nimbo::test
