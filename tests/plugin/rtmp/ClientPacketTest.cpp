#include <cstdlib>

#include "tests/plugin/rtmp/ClientFixture.h"
#include "tests/support/TlsServer.h"

namespace nimbo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char ConnectFailed[] =
    "ConnectServer: RTMP_Connect(_rtmp, __null) == 0,RTMP connect failed";
const std::string PushFailed = "ReceivePacket: push fail /";
const std::string AdtsLine = "SendAAC: _adts_len < 0 || _adts_len > size,_adts_len=";

Held<stream::Media> Sized(int width, int height) {
  auto media = VideoMedia();
  media->SetInt("w", width);
  media->SetInt("h", height);
  return media;
}

Held<stream::Media> WithOnly(const char* codec, const char* parameter) {
  Held<stream::Media> media(new stream::Media(codec));
  media->SetInt(parameter, 1920);
  return media;
}

using ClientPackets = ClientTest;

TEST_F(ClientPackets, NumbersAreComparedWithAnotherClientsOnlyWhereOneFollowsTheOther) {
  IngestServer server;
  const auto joins = [&](bool alone) {
    const std::uint32_t last = sequence;
    sequence += 50;
    console.Clear();
    EXPECT_TRUE(Receive(AccessUnit(true), video.get()));
    EXPECT_EQ(console.Count(std::to_string(sequence) + "," + std::to_string(last)),
              alone ? 1u : 0u);
    EXPECT_EQ(Get("rtmp_quality"), "0");
    sequence += 50;
    EXPECT_TRUE(Receive(AccessUnit(false), video.get(), 0, false));  // its own were lost
    EXPECT_EQ(Get("rtmp_quality"), "1");
    EXPECT_TRUE(Receive(AccessUnit(true), video.get()));
  };
  ASSERT_TRUE(Open(server.Url()));
  EXPECT_TRUE(Receive(AccessUnit(true), video.get()));
  Owned<stream::IElement> first;
  first.swap(client);
  ASSERT_TRUE(Open(server.Url()));
  joins(false);
  EXPECT_TRUE(first->StatusSet("null"));
  ASSERT_TRUE(client->StatusSet("null"));
  ASSERT_TRUE(Open(server.Url()));
  joins(true);
}

TEST_F(ClientPackets, RefusalIsToldWithTheLinesMessagesAndResultOfItsKind) {
  const Bytes picture = AccessUnit(true);
  const struct {
    Held<stream::Media> media;
    Bytes bytes;
    std::vector<std::string> failures;
    const char* codec;  ///< of a failure that is absorbed, else null
  } cases[] = {
      {nullptr, picture, {"ReceivePacket: !media"}, nullptr},
      {WithOnly("H264", "w"), picture, {}, nullptr},
      {WithOnly("H264", "h"), picture, {}, nullptr},
      {WithOnly("opus", "w"), picture, {"ReceivePacket: cannot support opus"}, "opus"},
      {VideoMedia(), AnnexB({Nal(IdrSlice, 4)}), {"SendH264: size<5"}, "h264"},
      {AudioMedia(), Bytes(3), {AdtsLine + "7,size=3"}, "aac"},
  };
  for (const char* status : {"ready", "play"}) {
    for (const auto& refused : cases) {
      const bool reported = refused.codec && status == std::string("play");
      IngestServer server;
      ASSERT_TRUE(Open(server.Url(), status));
      ASSERT_TRUE(ReceiveBoth());
      console.Clear();
      Messages();
      EXPECT_EQ(Receive(refused.bytes, refused.media.get()), refused.codec != nullptr);
      std::vector<std::string> failures = refused.failures;
      std::vector<std::string> messages;
      std::vector<std::string> sent = {"v0", "V0", "a0", "A0"};
      if (reported) {
        failures.push_back(PushFailed + refused.codec + "/" + std::to_string(sequence));
        messages.emplace_back("rtmp_send_data_fail");
        sent.insert(sent.end(), {"v0", "V0", "a0", "A0"});  // the headers again
      } else {
        sent.insert(sent.end(), {"V0", "A0"});
      }
      EXPECT_EQ(console.Failures(), failures);
      EXPECT_EQ(Messages(), messages);
      ASSERT_TRUE(ReceiveBoth());
      ASSERT_TRUE(server.WaitForMedia(0, sent.size()));
      EXPECT_EQ(Summary(server.Get(0)), sent);
      EXPECT_EQ(server.Connections(), 1u);
    }
  }
}

TEST_F(ClientPackets, LostSessionIsMadeAnewInUpToThreeAttempts) {
  constexpr int Attempts = 3;
  for (const int failing : {0, 1, 2, 3, 7}) {
    std::vector<Script> scripts(static_cast<std::size_t>(failing) + 2);
    // librtmp alone overlooks an end in good order until the server answers a packet with a reset.
    scripts.front() = {{{Point::Media, StockTransport ? Reaction::Reset : Reaction::Close, 4}}};
    std::fill(scripts.begin() + 1, scripts.end() - 1, Script{{{Point::Accepted, Reaction::Close}}});
    IngestServer server(scripts);
    ASSERT_TRUE(Open(server.Url()));
    ASSERT_TRUE(ReceiveBoth());
    ASSERT_TRUE(server.WaitForEnd(0));
    // The first packet meets the loss, a further one finds no session at all.
    for (int left = failing; left >= 0; left -= Attempts) {
      console.Clear();
      Messages();
      const bool back = left < Attempts;
      EXPECT_EQ(Receive(AccessUnit(true), video.get(), 40), back);

      std::vector<std::string> lines;
      lines.push_back(PushFailed + "h264/" + std::to_string(sequence));
      for (int i = 0; i < std::min(left, Attempts); ++i) {
        lines.insert(lines.end(), {ConnectFailed, "ReceivePacket: try to reconnect"});
      }
      if (back) lines.emplace_back("ReceivePacket: try to reconnect");
      lines.emplace_back(back ? "ReceivePacket: reconnect success"
                              : "ReceivePacket: !ret,reconnect failed");
      EXPECT_EQ(console.Failures(), lines);
      EXPECT_THAT(Messages(), ElementsAre("rtmp_send_data_fail",
                                          back ? "rtmp_reconnect_success" : "rtmp_reconnect_fail"));
      EXPECT_EQ(Get("rtmp_sts"), back ? "true" : "false");
    }
    ASSERT_TRUE(ReceiveBoth());
    ASSERT_TRUE(server.WaitForMedia(scripts.size() - 1, 4));
    EXPECT_THAT(Summary(server.Get(scripts.size() - 1)), ElementsAre("v0", "V0", "a0", "A0"));
  }
}

TEST_F(ClientPackets, LostSessionIsLeftAloneUnlessPlaying) {
  IngestServer server({{{{Point::Media, Reaction::Close, 4}}}});
  ASSERT_TRUE(Open(server.Url(), "ready"));
  ASSERT_TRUE(ReceiveBoth());
  ASSERT_TRUE(server.WaitForEnd(0));
  EXPECT_TRUE(ReceiveBoth());  // meets the loss
  console.Clear();
  Messages();
  EXPECT_TRUE(ReceiveBoth());
  EXPECT_THAT(console.Text(), IsEmpty());
  EXPECT_THAT(Messages(), IsEmpty());
  EXPECT_EQ(server.Connections(), 1u);
}

TEST_F(ClientPackets, SessionIsMadeAnewWhenBothSidesOfThePictureChange) {
  const struct {
    int width, height;
    std::size_t connections;
  } steps[] = {
      {1280, 720, 1},  {1280, 1080, 1}, {1920, 720, 1}, {1920, 1080, 2},  // now 1080, 1080
      {1920, 1080, 2}, {1280, 1080, 2}, {1080, 720, 2}, {1280, 720, 3},
  };
  IngestServer server;
  ASSERT_TRUE(Open(server.Url()));
  std::size_t before = 1;
  for (const auto& step : steps) {
    video = Sized(step.width, step.height);
    console.Clear();
    ASSERT_TRUE(ReceiveBoth());
    EXPECT_EQ(server.Connections(), step.connections) << step.width << "x" << step.height;
    const std::string size = std::to_string(step.width) + "/" + std::to_string(step.height);
    const auto lines = Told("EleRtmpClient");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "6 ReceivePacket: " + size),
              static_cast<long>(step.connections - before));
    before = step.connections;
  }
  ASSERT_TRUE(server.WaitForMedia(2, 4));
  EXPECT_THAT(Summary(server.Get(1)),
              ElementsAre("v0", "V0", "a0", "A0", "V0", "A0", "V0", "A0", "V0", "A0"));
  EXPECT_THAT(Summary(server.Get(2)), ElementsAre("v0", "V0", "a0", "A0"));
  EXPECT_EQ(server.Get(0).CommandNames().back(), "deleteStream");

  server.StopListening();
  console.Clear();
  Messages();
  EXPECT_FALSE(Receive(AccessUnit(true), Sized(640, 480).get()));
  EXPECT_THAT(console.Failures(),
              ElementsAre(ConnectFailed,
                          "ReceivePacket: !ConnectServer(_url.c_str()),resoltion sw,reconnect "
                          "failed"));
  EXPECT_THAT(Messages(), ElementsAre("rtmp_disconnected"));
  EXPECT_EQ(Get("rtmp_sts"), "false");
}

TEST_F(ClientPackets, BothCopyModesSendTheSameAndLeavePacketsAlone) {
  TlsServer tls;
  setenv("RTMP_CA_FILE", tls.TrustFile().c_str(), 1);
  for (const bool secured : {false, !StockTransport}) {  // librtmp alone knows no TLS 1.3
    IngestServer::Options options;
    if (secured) options.secure = tls.Securer();
    IngestServer server({Script{}}, options);
    constexpr std::int64_t Times[] = {0, 0xFFFFFE, 0xFFFFFF, 0x1000005};
    constexpr std::size_t Sizes[] = {8, 1013, 1022, 1024, 5000, 300000};
    std::vector<Message> sent[2];
    for (const bool copy : {true, false}) {
      Make(server.Url());
      const char* const value = copy ? "true" : "false";
      ASSERT_TRUE(client->Set("vcopy", value) && client->Set("acopy", value));
      ASSERT_TRUE(client->StatusSet("play"));
      for (const std::int64_t time : Times) {
        for (const std::size_t size : Sizes) {
          const std::pair<Bytes, stream::IMedia*> both[] = {{AccessUnit(true, size), video.get()},
                                                            {AdtsFrame(size), audio.get()}};
          for (const auto& [bytes, media] : both) {
            const auto packet = NewPacket({bytes, true, time * Millisecond, ++sequence, media});
            ASSERT_TRUE(client->ReceivePacket(*packet, nullptr));
            EXPECT_EQ(Bytes(packet->Data(), packet->Data() + packet->Size()), bytes);
          }
        }
      }
      client.reset();
      ASSERT_TRUE(server.WaitForEnd(copy ? 0 : 1));
      sent[copy] = server.Get(copy ? 0 : 1).Media();
      ASSERT_EQ(sent[copy].size(), 2 + 2 * std::size(Times) * std::size(Sizes));
    }
    for (std::size_t i = 0; i < sent[0].size(); ++i) {
      EXPECT_EQ(sent[0][i].header, sent[1][i].header);
      EXPECT_EQ(sent[0][i].formats, sent[1][i].formats);
      EXPECT_EQ(sent[0][i].body, sent[1][i].body);
    }
  }
  unsetenv("RTMP_CA_FILE");
}

}  // namespace
}  // namespace nimbo::test
