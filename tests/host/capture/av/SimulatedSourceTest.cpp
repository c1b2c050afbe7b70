#include "host/capture/av/SimulatedCamera.h"
#include "host/capture/av/SimulatedMicrophone.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "host/capture/Adts.h"
#include "tests/host/capture/av/DecodedStream.h"
#include "tests/support/ConsoleCapture.h"

namespace nimbo::test {
namespace {

using namespace capture;
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

TEST(Simulated, OptionsThatItCannotMeetAreRefusedInOneLine) {
  for (const char* option : {"W=321", "H=many", "fr=0", "rate=47000", "channel=6"}) {
    ConsoleCapture console;
    const base::AttrSet options(option);
    EXPECT_FALSE(std::strchr("rc", *option) ? MakeSimulated<SimulatedMicrophone>("aac-1", options)
                                            : MakeSimulated<SimulatedCamera>("h264-1", options));
    EXPECT_EQ(console.Lines().size(), 1U);
    EXPECT_EQ(console.Count(option), 1U);
  }
}

class SimulatedSound : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(SimulatedSound, DecodesAtTheRateAndChannelsThatItsMediaTells) {
  const auto [rate, channels] = GetParam();
  const auto microphone = MakeSimulated<SimulatedMicrophone>(
      "aac-1",
      base::AttrSet(
          ("rate=" + std::to_string(rate) + ",channel=" + std::to_string(channels)).c_str()));
  ASSERT_TRUE(microphone->Open());
  stream::IMedia& media = *microphone->Streams()[0];
  EXPECT_EQ(MediaInt(media, "rate"), rate);
  EXPECT_EQ(MediaInt(media, "channel"), channels);
  ASSERT_TRUE(microphone->Start());
  const Packets packets = ReadPackets(*microphone, 10);
  ASSERT_EQ(packets.size(), 10U);
  for (const auto& packet : packets) {
    const auto header = capture::ParseAdts({packet->Data(), packet->Size()});
    ASSERT_TRUE(header);
    EXPECT_EQ(header->frame, static_cast<int>(packet->Size()));
  }
  EXPECT_NEAR(static_cast<double>(packets[9]->TimeStamp() - packets[0]->TimeStamp()),
              9.0 * AacFrameSamples * NsPerSecond / rate, 10);
  const Decoded decoded = Decode("aac", OfCodec(packets, "aac"));
  EXPECT_EQ(decoded.frames, 10);
  EXPECT_EQ(decoded.rate, rate);
  EXPECT_EQ(decoded.channels, channels);
  microphone->Close();
}
INSTANTIATE_TEST_SUITE_P(RatesAndChannels, SimulatedSound,
                         testing::Values(std::pair(48000, 2), std::pair(44100, 1)));

}  // namespace
}  // namespace nimbo::test
