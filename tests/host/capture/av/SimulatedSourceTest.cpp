#include "host/capture/av/SimulatedSource.h"

#include <gtest/gtest.h>

#include <thread>

#include "host/capture/Adts.h"
#include "tests/host/capture/av/DecodedStream.h"
#include "tests/support/ConsoleCapture.h"

namespace nimbo::test {
namespace {

using namespace capture::av;

const base::AttrSet SmallCamera("W=320,H=180,fr=50,br=400000,gop=5");

TEST(SimulatedCamera, MakesPicturesThatTheWireFormatCanDescribe) {
  const auto camera = MakeSimulated<SimulatedCamera>("h264-0", SmallCamera);
  ASSERT_TRUE(camera->Open());
  ASSERT_EQ(camera->Streams().size(), 1U);
  EXPECT_EQ(MediaInt(*camera->Streams()[0], "w"), 320);
  EXPECT_EQ(MediaInt(*camera->Streams()[0], "h"), 180);
  ASSERT_TRUE(camera->Start());
  const Packets packets = ReadPackets(*camera, 12);
  const auto pictures = OfCodec(packets, "h264");
  ASSERT_EQ(pictures.size(), 12U);
  ExpectDescribableVideo(pictures);
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    EXPECT_EQ(pictures[i]->IsKey(), i % 5 == 0);
    // On the grid of the frame rate, whatever was left out on a slow machine.
    EXPECT_EQ((pictures[i]->TimeStamp() - pictures[0]->TimeStamp()) % (NsPerSecond / 50), 0);
  }
  const Decoded decoded = Decode("h264", pictures);
  EXPECT_EQ(decoded.frames, 12);
  EXPECT_EQ(decoded.width, 320);
  EXPECT_EQ(decoded.height, 180);
  camera->Close();
}

TEST(SimulatedCamera, BeginsWithAKeyFrameAfterEveryStart) {
  const auto camera = MakeSimulated<SimulatedCamera>("h264-0", SmallCamera);
  ASSERT_TRUE(camera->Open());
  std::uint32_t sequence = 0;
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(camera->Start());
    const Packets packets = ReadPackets(*camera, 2);
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_TRUE(packets[0]->IsKey());
    EXPECT_FALSE(packets[1]->IsKey());
    EXPECT_EQ(packets[0]->Sequence(), sequence + 1);
    sequence = packets[1]->Sequence();
    camera->Abort();
    EXPECT_EQ(camera->Read(), nullptr);
  }
  camera->Close();
}

TEST(SimulatedCamera, LeavesOutWhatALateReaderMissed) {
  constexpr std::int64_t Pause = 500 * NsPerMillisecond;
  const auto camera = MakeSimulated<SimulatedCamera>("h264-0", SmallCamera);
  ASSERT_TRUE(camera->Open());
  ASSERT_TRUE(camera->Start());
  Packets packets = ReadPackets(*camera, 1);
  std::this_thread::sleep_for(std::chrono::nanoseconds(Pause));
  const std::int64_t now = capture::MonotonicNow();
  packets.push_back(std::move(ReadPackets(*camera, 1).front()));
  EXPECT_GE(packets[1]->TimeStamp(), now - NsPerSecond / 50);
  EXPECT_EQ(packets[1]->Sequence(), packets[0]->Sequence() + 1);
  camera->Close();
}

TEST(SimulatedCamera, TellsOnceThatItDoesNotReorder) {
  ConsoleCapture console;
  for (int camera = 0; camera < 2; ++camera) {
    EXPECT_TRUE(MakeSimulated<SimulatedCamera>("h264-0", base::AttrSet("gopTypeStr=ibbp,gop=30")));
  }
  EXPECT_EQ(console.Count("encodes without reordering"), 1U);
  EXPECT_EQ(console.Lines().size(), 1U);
}

TEST(TestPicture, ShowsTheTimeOfDayAndTheNumberOfTheFrame) {
  constexpr std::int64_t Time = ((23 * 60 + 5) * 60 + 9) * NsPerSecond + 40 * NsPerMillisecond;
  EXPECT_EQ(ClockText(Time, 77), "23:05:09.040 / 77");
  EXPECT_EQ(ClockText(Time + 24 * 3600 * NsPerSecond, 0), "23:05:09.040 / 0");
}

struct Refused {
  const char* options;
  const char* told;
};
class SimulatedOptions : public testing::TestWithParam<Refused> {};

TEST_P(SimulatedOptions, AreRefusedWithOneLine) {
  ConsoleCapture console;
  const base::AttrSet options(GetParam().options);
  const bool sound = options.Get("rate") || options.Get("channel");
  EXPECT_FALSE(sound ? MakeSimulated<SimulatedMicrophone>("aac-1", options)
                     : MakeSimulated<SimulatedCamera>("h264-1", options));
  EXPECT_EQ(console.Lines().size(), 1U);
  EXPECT_EQ(console.Count(GetParam().told), 1U);
}
INSTANTIATE_TEST_SUITE_P(All, SimulatedOptions,
                         testing::Values(Refused{"W=321", "W=321,H=720 must both be even"},
                                         Refused{"H=many", "H=many"}, Refused{"fr=0", "fr=0"},
                                         Refused{"gop=1x", "gop=1x"},
                                         Refused{"rate=47000", "rate=47000"},
                                         Refused{"rate=8000", "rate=8000"},
                                         Refused{"channel=6", "channel=6"}));

class SimulatedSound : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(SimulatedSound, DecodesAtTheRateAndChannelsThatItsMediaTells) {
  const auto [rate, channels] = GetParam();
  base::AttrSet options;
  options.Set("rate", std::to_string(rate).c_str());
  options.Set("channel", std::to_string(channels).c_str());
  const auto microphone = MakeSimulated<SimulatedMicrophone>("aac-1", options);
  ASSERT_TRUE(microphone->Open());
  stream::IMedia& media = *microphone->Streams()[0];
  EXPECT_EQ(MediaInt(media, "adtslen"), 7);
  EXPECT_EQ(MediaInt(media, "profile"), 1);
  EXPECT_EQ(MediaInt(media, "rate"), rate);
  EXPECT_EQ(MediaInt(media, "channel"), channels);
  ASSERT_TRUE(microphone->Start());
  const Packets packets = ReadPackets(*microphone, 10);
  ASSERT_EQ(packets.size(), 10U);
  for (const auto& packet : packets) {
    capture::AdtsHeader header;
    ASSERT_TRUE(capture::ParseAdts(packet->Data(), packet->Size(), header));
    EXPECT_EQ(header.frame, static_cast<int>(packet->Size()));
    EXPECT_EQ(header.profile, 1);
  }
  const Decoded decoded = Decode("aac", OfCodec(packets, "aac"));
  EXPECT_EQ(decoded.frames, 10);
  EXPECT_EQ(decoded.rate, rate);
  EXPECT_EQ(decoded.channels, channels);
  microphone->Close();
}
INSTANTIATE_TEST_SUITE_P(RatesAndChannels, SimulatedSound,
                         testing::Values(std::pair(48000, 2), std::pair(44100, 1),
                                         std::pair(96000, 2), std::pair(32000, 1)));

TEST(AvModule, IsLoadedForItsSources) {
  const auto source = capture::CaptureRegistry::Globle().Make("h264-3", SmallCamera);
  ASSERT_TRUE(source);
  EXPECT_TRUE(source->Open());
  source->Close();
}

}  // namespace
}  // namespace nimbo::test
