#include <cstdlib>

#include "tests/plugin/rtmp/ClientFixture.h"
#include "tests/support/TlsServer.h"

namespace nimbo::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char ConnectFailed[] =
    "ConnectServer: RTMP_Connect(_rtmp, __null) == 0,RTMP connect failed";
const Script Dropping{{{Point::Accepted, Reaction::Close}}};

struct Refused {
  const char* what;
  std::function<Held<stream::Media>()> media;
  Bytes bytes;
  std::vector<std::string> failures;
  const char* codec = nullptr;  ///< of a failure that is absorbed, else null
};

class ClientRefuses : public ClientTest, public testing::WithParamInterface<Refused> {};

TEST_P(ClientRefuses, WithTheLinesMessagesAndResultOfItsKind) {
  const Refused& refused = GetParam();
  const bool absorbed = refused.codec != nullptr;
  for (const char* status : {"ready", "play"}) {
    const bool reported = absorbed && std::string(status) == "play";
    IngestServer server;
    ASSERT_TRUE(Open(server.Url(), status));
    ASSERT_TRUE(ReceiveBoth());
    console.Clear();
    Messages();

    const auto media = refused.media();
    EXPECT_EQ(Receive(refused.bytes, media.get()), absorbed);
    std::vector<std::string> failures = refused.failures;
    if (reported) {
      failures.push_back(std::string("ReceivePacket: push fail /") + refused.codec + "/" +
                         std::to_string(sequence));
    }
    EXPECT_THAT(console.Failures(), ElementsAreArray(failures));
    EXPECT_THAT(Messages(), ElementsAreArray(
                                std::vector<std::string>(reported ? 1 : 0, "rtmp_send_data_fail")));
    // What was reported makes the headers go out again.
    ASSERT_TRUE(ReceiveBoth());
    std::vector<std::string> sent = {"v0", "V0", "a0", "A0", "V0", "A0"};
    if (reported) sent = {"v0", "V0", "a0", "A0", "v0", "V0", "a0", "A0"};
    ASSERT_TRUE(server.WaitForMedia(0, sent.size()));
    EXPECT_THAT(Summary(server.Get(0)), ElementsAreArray(sent));
    EXPECT_EQ(server.Connections(), 1u);
  }
}

Held<stream::Media> Sized(int width, int height) {
  auto media = VideoMedia();
  media->SetInt("w", width);
  media->SetInt("h", height);
  return media;
}
Held<stream::Media> OneSided(const char* side) {
  Held<stream::Media> media(new stream::Media("H264"));
  media->SetInt(side, 1920);
  return media;
}

INSTANTIATE_TEST_SUITE_P(
    Packets, ClientRefuses,
    testing::Values(
        Refused{"NoMedia", [] { return nullptr; }, AccessUnit(true), {"ReceivePacket: !media"}},
        Refused{"NoHeight", [] { return OneSided("w"); }, AccessUnit(true), {}},
        Refused{"NoWidth", [] { return OneSided("h"); }, AccessUnit(true), {}},
        Refused{"OtherCodec",
                [] { return Held<stream::Media>(new stream::Media("opus")); },
                AccessUnit(true),
                {"ReceivePacket: cannot support opus"},
                "opus"},
        Refused{"ShortPicture",
                [] { return VideoMedia(); },
                AnnexB({Nal(IdrSlice, 4)}),
                {"SendH264: size<5"},
                "h264"},
        Refused{"ShortSound",
                [] { return AudioMedia(); },
                Bytes(3),
                {"SendAAC: _adts_len < 0 || _adts_len > size,_adts_len=7,size=3"},
                "aac"}),
    [](const auto& refused) { return std::string(refused.param.what); });

class ClientReconnect : public ClientTest, public testing::WithParamInterface<int> {};

TEST_P(ClientReconnect, TakesUpToThreeAttempts) {
  constexpr int Attempts = 3;
  const int failing = GetParam();
  std::vector<Script> scripts{{{{Point::Media, Reaction::Close, 4}}}};
  scripts.insert(scripts.end(), static_cast<std::size_t>(failing), Dropping);
  scripts.emplace_back();
  IngestServer server(scripts);
  ASSERT_TRUE(Open(server.Url()));
  ASSERT_TRUE(ReceiveBoth());
  ASSERT_TRUE(server.WaitForEnd(0));
  // The first packet meets the loss, a further one finds no session at all.
  for (int left = failing, round = 0; left >= 0; left -= Attempts, ++round) {
    console.Clear();
    Messages();
    const bool back = left < Attempts;
    EXPECT_EQ(Receive(AccessUnit(true), video.get(), 40), back);

    std::vector<std::string> lines;
    if (round == 0) lines.emplace_back("SendRtmpPacket: !RTMP_IsConnected(_rtmp)");
    lines.push_back("ReceivePacket: push fail /h264/" + std::to_string(sequence));
    for (int i = 0; i < std::min(left, Attempts); ++i) {
      lines.insert(lines.end(), {ConnectFailed, "ReceivePacket: try to reconnect"});
    }
    if (back) lines.emplace_back("ReceivePacket: try to reconnect");
    lines.emplace_back(back ? "ReceivePacket: reconnect success"
                            : "ReceivePacket: !ret,reconnect failed");
    EXPECT_THAT(console.Failures(), ElementsAreArray(lines));
    EXPECT_THAT(Messages(), ElementsAre("rtmp_send_data_fail",
                                        back ? "rtmp_reconnect_success" : "rtmp_reconnect_fail"));
    EXPECT_EQ(Get("rtmp_sts"), back ? "true" : "false");
  }
  ASSERT_TRUE(ReceiveBoth());
  const auto last = static_cast<std::size_t>(failing) + 1;
  ASSERT_TRUE(server.WaitForMedia(last, 4));
  EXPECT_THAT(Summary(server.Get(last)), ElementsAre("v0", "V0", "a0", "A0"));
}

INSTANTIATE_TEST_SUITE_P(FailedAttempts, ClientReconnect, testing::Values(0, 1, 2, 3, 7));

using ClientPackets = ClientTest;

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
    EXPECT_EQ(console.Count(size), step.connections - before);
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
  for (const bool secured : {false, true}) {
    IngestServer::Options options;
    if (secured) options.secure = tls.Securer();
    IngestServer server({Script{}}, options);
    constexpr std::int64_t Times[] = {0, 0xFFFFFE, 0x1000005};
    constexpr std::size_t Sizes[] = {8, 1013, 1022, 1024, 5000, 300000};
    std::vector<Record> records;
    for (const char* copy : {"true", "false"}) {
      Make(server.Url());
      ASSERT_TRUE(client->Set("vcopy", copy) && client->Set("acopy", copy));
      ASSERT_TRUE(client->StatusSet("play"));
      for (const std::int64_t time : Times) {
        for (const std::size_t size : Sizes) {
          const Bytes both[] = {AccessUnit(true, size), AdtsFrame(size)};
          for (const Bytes& bytes : both) {
            stream::IMedia* media = &bytes == both ? video.get() : audio.get();
            const auto packet = NewPacket({bytes, true, time * Millisecond, ++sequence, media});
            ASSERT_TRUE(client->ReceivePacket(*packet, nullptr));
            EXPECT_EQ(Bytes(packet->Data(), packet->Data() + packet->Size()), bytes);
          }
        }
      }
      client.reset();
      ASSERT_TRUE(server.WaitForEnd(records.size()));
      records.push_back(server.Get(records.size()));
    }
    const std::vector<Message> copied = records[0].Media();
    const std::vector<Message> direct = records[1].Media();
    ASSERT_EQ(copied.size(), 2 + 2 * std::size(Times) * std::size(Sizes));
    ASSERT_EQ(direct.size(), copied.size());
    for (std::size_t i = 0; i < copied.size(); ++i) {
      EXPECT_EQ(direct[i].header, copied[i].header);
      EXPECT_EQ(direct[i].formats, copied[i].formats);
      EXPECT_EQ(direct[i].body, copied[i].body);
    }
  }
  unsetenv("RTMP_CA_FILE");
}

}  // namespace
}  // namespace nimbo::test
