#include "host/capture/av/LibavSource.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "host/capture/av/DayClock.h"
#include "host/capture/av/LibavLog.h"
#include "tests/host/capture/av/DecodedStream.h"
#include "tests/host/capture/av/MediaFile.h"
#include "tests/support/ConsoleCapture.h"

namespace nimbo::test {
namespace {

using namespace capture::av;

std::unique_ptr<capture::CaptureSource> NewSource(const std::string& url,
                                                  const char* options = "pace=fast") {
  InstallLogFilter();
  base::AttrSet attrs(options);
  attrs.Set("url", url.c_str());
  return LibavSource::Make("av", attrs);
}

Bytes SliceOf(const unsigned char* data, std::size_t size) {
  for (const NalUnit& unit : SplitAnnexB(data, size)) {
    if (unit.IsSlice()) return Bytes(unit.data, unit.data + unit.size);
  }
  return {};
}

void ExpectInOrder(const Packets& packets) {
  for (std::size_t i = 1; i < packets.size(); ++i) {
    EXPECT_GE(packets[i]->TimeStamp(), packets[i - 1]->TimeStamp());
  }
}

class PassThrough : public testing::TestWithParam<const char*> {};

TEST_P(PassThrough, GivesThePacketsOfTheFile) {
  const TemporaryFile file("pass");
  MediaForm form;
  form.format = GetParam();
  const Encoded encoded = WriteMedia(file.Path(), form);
  ASSERT_TRUE(encoded.written);
  ConsoleCapture console;
  const auto source = NewSource(file.Path());
  ASSERT_TRUE(source->Open());
  EXPECT_EQ(source->Outputs(), (std::vector<std::string>{"h264", "aac"}));
  ASSERT_TRUE(source->Start());
  const Packets packets = ReadPackets(*source);
  ExpectInOrder(packets);
  const auto video = OfCodec(packets, "h264");
  ASSERT_EQ(video.size(), encoded.video.size());
  ExpectDescribableVideo(video);
  for (std::size_t i = 0; i < video.size(); ++i) {
    EXPECT_EQ(SliceOf(video[i]->Data(), video[i]->Size()),
              SliceOf(encoded.video[i].data(), encoded.video[i].size()));
    EXPECT_NEAR(static_cast<double>(video[i]->TimeStamp() - video[0]->TimeStamp()),
                static_cast<double>(i) * NsPerSecond / 25, NsPerMillisecond);
  }
  const auto audio = OfCodec(packets, "aac");
  ASSERT_EQ(audio.size(), encoded.audio.size());
  for (std::size_t i = 0; i < audio.size(); ++i) {
    ASSERT_GT(audio[i]->Size(), 7U);
    EXPECT_EQ(Bytes(audio[i]->Data() + 7, audio[i]->Data() + audio[i]->Size()), encoded.audio[i]);
  }
  EXPECT_EQ(Decode("aac", audio).rate, form.rate);
  EXPECT_EQ(console.Text(), "");
  source->Close();
}
INSTANTIATE_TEST_SUITE_P(LengthPrefixedAndAnnexB, PassThrough,
                         testing::Values("mp4", "flv", "mpegts"));

struct Unusual {
  const char* name;
  MediaForm form;
  const char* told;
};
std::ostream& operator<<(std::ostream& out, const Unusual& unusual) { return out << unusual.name; }
MediaForm Form(const char* x264, int bFrames, const char* audio, int rate) {
  MediaForm form;
  form.format = "matroska";
  form.x264 = x264;
  form.bFrames = bFrames;
  form.audio = audio;
  form.rate = rate;
  return form;
}

class Transcoding : public testing::TestWithParam<Unusual> {};

TEST_P(Transcoding, MakesItDescribableAndSaysWhy) {
  const TemporaryFile file("unusual.mkv");
  const Encoded encoded = WriteMedia(file.Path(), GetParam().form);
  ASSERT_TRUE(encoded.written);
  ConsoleCapture console;
  const auto source = NewSource(file.Path());
  ASSERT_TRUE(source->Open());
  ASSERT_EQ(console.Lines().size(), 1U) << console.Text();
  EXPECT_EQ(console.Lines()[0].colour, '3');
  EXPECT_EQ(console.Count(GetParam().told), 1U) << console.Text();
  ASSERT_TRUE(source->Start());
  const Packets packets = ReadPackets(*source);
  ExpectInOrder(packets);
  const auto video = OfCodec(packets, "h264");
  EXPECT_EQ(video.size(), encoded.video.size());
  ExpectDescribableVideo(video);
  EXPECT_EQ(Decode("h264", video).frames, static_cast<int>(encoded.video.size()));
  const auto audio = OfCodec(packets, "aac");
  ASSERT_FALSE(audio.empty());
  const Decoded decoded = Decode("aac", audio);
  EXPECT_EQ(decoded.frames, static_cast<int>(audio.size()));
  EXPECT_EQ(decoded.rate, MediaInt(*audio[0]->Media(), "rate"));
  // Sound and pictures last equally long, whatever became of them.
  const auto span = [](const auto& of) { return of.back()->TimeStamp() - of.front()->TimeStamp(); };
  EXPECT_NEAR(static_cast<double>(span(audio)), static_cast<double>(span(video)),
              200.0 * NsPerMillisecond);
  source->Close();
}
INSTANTIATE_TEST_SUITE_P(
    Reasons, Transcoding,
    testing::Values(Unusual{"BPictures", Form("", 2, "aac", 44100), "it has B pictures"},
                    Unusual{"Slices", Form("slices=4", 0, "aac", 48000), "several slices"},
                    Unusual{"Mp3", Form("", 0, "libmp3lame", 44100), "it is mp3, not aac"},
                    Unusual{"Rate", Form("", 0, "aac", 8000), "its rate is 8000 Hz"}));

TEST(LibavSource, ContinuesTheTimeLineOverRepetitions) {
  const TemporaryFile file("loop.mp4");
  MediaForm form;
  form.pictures = 10;
  const Encoded encoded = WriteMedia(file.Path(), form);
  ASSERT_TRUE(encoded.written);
  const auto source = NewSource(file.Path(), "pace=fast,loop=3");
  ASSERT_TRUE(source->Open());
  ASSERT_TRUE(source->Start());
  const Packets packets = ReadPackets(*source);
  ExpectInOrder(packets);
  const auto video = OfCodec(packets, "h264");
  ASSERT_EQ(video.size(), 3 * encoded.video.size());
  ExpectDescribableVideo(video);
  // A repetition starts where the longer stream ended.
  const std::int64_t round = video[10]->TimeStamp() - video[0]->TimeStamp();
  EXPECT_EQ(video[20]->TimeStamp() - video[10]->TimeStamp(), round);
  EXPECT_GE(round, 10 * NsPerSecond / 25);
  source->Close();
}

TEST(LibavSource, StartsFilesAtTheTimeOfStart) {
  const TemporaryFile file("paced.mp4");
  MediaForm form;
  form.pictures = 5;
  ASSERT_TRUE(WriteMedia(file.Path(), form).written);
  const auto source = NewSource(file.Path(), "streams=video");
  ASSERT_TRUE(source->Open());
  const std::int64_t before = capture::MonotonicNow();
  ASSERT_TRUE(source->Start());
  const std::int64_t after = capture::MonotonicNow();
  const Packets packets = ReadPackets(*source);
  ASSERT_EQ(packets.size(), 5U);
  EXPECT_GE(packets[0]->TimeStamp(), before);
  EXPECT_LE(packets[0]->TimeStamp(), after);
  // No packet comes before it is due.
  EXPECT_GE(capture::MonotonicNow(), packets[4]->TimeStamp());
  source->Close();
}

TEST(LibavSource, TellsInOneLineWhatCannotBeOpened) {
  const TemporaryFile garbage("garbage.mp4");
  FILE* file = fopen(garbage.Path().c_str(), "w");
  fputs("no media at all", file);
  fclose(file);
  const std::pair<std::string, const char*> inputs[] = {
      {"no/such/file.mp4", "\"no/such/file.mp4\" cannot be opened: No such file or directory"},
      {garbage.Path(), "Invalid data"}};
  for (const auto& [url, told] : inputs) {
    ConsoleCapture console;
    const auto source = NewSource(url);
    EXPECT_FALSE(source->Open());
    source->Close();
    ASSERT_EQ(console.Lines().size(), 1U) << console.Text();
    EXPECT_EQ(console.Lines()[0].colour, '1');
    EXPECT_EQ(console.Count(told), 1U) << console.Text();
  }
}

TEST(LibavSource, GivesAPipeUpThatStaysSilent) {
  const TemporaryFile file("silent.ts");
  MediaForm form;
  form.format = "mpegts";
  form.pictures = 5;
  ASSERT_TRUE(WriteMedia(file.Path(), form).written);
  Bytes beginning(4096);
  FILE* from = fopen(file.Path().c_str(), "r");
  beginning.resize(fread(beginning.data(), 1, beginning.size(), from));
  fclose(from);
  const TemporaryFile place("silent.pipe");
  ASSERT_EQ(mkfifo(place.Path().c_str(), 0600), 0);
  {
    ConsoleCapture console;
    EXPECT_FALSE(NewSource(place.Path(), "wait=0.2")->Open()) << "nobody writes";
    EXPECT_EQ(console.Count("nothing was received for 0.2 s"), 1U) << console.Text();
  }
  for (const std::size_t sent : {std::size_t{0}, beginning.size()}) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], beginning.data(), sent), static_cast<ssize_t>(sent));
    ConsoleCapture console;
    const auto source = NewSource("pipe:" + std::to_string(ends[0]), "wait=0.2");
    EXPECT_FALSE(source->Open());
    EXPECT_EQ(console.Lines().size(), 1U) << console.Text();
    EXPECT_EQ(console.Count("nothing was received for 0.2 s"), 1U) << console.Text();
    source->Close();
    close(ends[0]);
    close(ends[1]);
  }
}

TEST(LibavSource, ReadsADeviceWithoutBlocking) {
  const auto source = NewSource("null", "format=alsa");
  ASSERT_TRUE(source);
  {
    ConsoleCapture console;
    if (!source->Open()) GTEST_SKIP() << "no ALSA here: " << console.Text();
  }
  EXPECT_FALSE(source->Unpaced());
  ASSERT_TRUE(source->Start());
  EXPECT_TRUE(Held<stream::Packet>(source->Read()));
  source->Abort();
  EXPECT_EQ(source->Read(), nullptr);
  source->Close();
}

TEST(LibavSource, EndsAReadFromASilentPipeWhenAborted) {
  const TemporaryFile file("pipe.ts");
  MediaForm form;
  form.format = "mpegts";
  ASSERT_TRUE(WriteMedia(file.Path(), form).written);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::thread writer([&] {
    FILE* from = fopen(file.Path().c_str(), "r");
    char buffer[4096];
    for (std::size_t got; (got = fread(buffer, 1, sizeof buffer, from)) > 0;) {
      EXPECT_EQ(write(ends[1], buffer, got), static_cast<ssize_t>(got));
    }
    fclose(from);
  });
  const auto source = NewSource("pipe:" + std::to_string(ends[0]));
  ASSERT_TRUE(source->Open());
  ASSERT_TRUE(source->Start());
  Packets packets;
  std::thread reader([&] { packets = ReadPackets(*source); });
  // The pipe stays open, so the end does not come by itself.
  writer.join();
  source->Abort();
  reader.join();
  EXPECT_EQ(source->Read(), nullptr);
  source->Close();
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
}  // namespace nimbo::test
