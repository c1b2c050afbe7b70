#include "host/capture/av/LibavSource.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <thread>

#include "host/capture/Adts.h"
#include "host/capture/av/DayClock.h"
#include "host/capture/av/LibavLog.h"
#include "tests/host/capture/av/DecodedStream.h"
#include "tests/host/capture/av/MediaFile.h"
#include "tests/support/ConsoleCapture.h"
#include "tests/support/StreamFile.h"

namespace nimbo::test {
namespace {

using namespace capture;
using namespace capture::av;

std::unique_ptr<capture::CaptureSource> NewSource(const std::string& url,
                                                  const char* options = "pace=fast") {
  InstallLogFilter();
  base::AttrSet attrs(options);
  attrs.Set("url", url.c_str());
  return LibavSource::Make("av", attrs);
}

std::vector<Bytes> Slices(const Bytes& stream) {
  std::vector<Bytes> slices;
  for (const NalUnit& unit : SplitAnnexB(stream)) {
    if (unit.IsSlice()) slices.emplace_back(unit.bytes.begin(), unit.bytes.end());
  }
  return slices;
}

Bytes BytesOf(const std::vector<stream::Packet*>& packets) {
  Bytes all;
  for (auto* packet : packets) Append(all, Bytes(packet->Data(), packet->Data() + packet->Size()));
  return all;
}

Bytes FileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

void ExpectInOrder(const Packets& packets) {
  for (std::size_t i = 1; i < packets.size(); ++i) {
    EXPECT_GE(packets[i]->TimeStamp(), packets[i - 1]->TimeStamp());
  }
}

class PassThrough : public testing::TestWithParam<const char*> {};

TEST_P(PassThrough, GivesThePacketsOfTheFile) {
  const StreamFile file({}), pictures({}), sound({});
  // What the encoders give goes to the file and, as it is, to two more.
  ASSERT_TRUE(WriteMedia("[f=" + std::string(GetParam()) + "]" + file.Path() +
                             "|[f=h264:select=v]" + pictures.Path() + "|[f=adts:select=a]" +
                             sound.Path(),
                         "tee", 50));
  ConsoleCapture console;
  const auto source = NewSource(file.Path());
  ASSERT_TRUE(source->Open());
  EXPECT_EQ(source->Outputs(), (std::vector<std::string>{"h264", "aac"}));
  ASSERT_TRUE(source->Start());
  const Packets packets = ReadPackets(*source);
  ExpectInOrder(packets);
  const auto video = OfCodec(packets, "h264");
  ASSERT_EQ(video.size(), 50U);
  ExpectDescribableVideo(video);
  EXPECT_EQ(Slices(BytesOf(video)), Slices(FileBytes(pictures.Path())));
  for (std::size_t i = 0; i < video.size(); ++i) {
    EXPECT_NEAR(static_cast<double>(video[i]->TimeStamp() - video[0]->TimeStamp()),
                static_cast<double>(i) * NsPerSecond / 25, NsPerMillisecond);
  }
  EXPECT_EQ(BytesOf(OfCodec(packets, "aac")), FileBytes(sound.Path()));
  EXPECT_EQ(console.Text(), "");
  source->Close();
}
INSTANTIATE_TEST_SUITE_P(LengthPrefixedAndAnnexB, PassThrough,
                         testing::Values("mp4", "flv", "mpegts"));

struct Unusual {
  const char* name;
  const char* options;
  const char* told;
};
std::ostream& operator<<(std::ostream& out, const Unusual& unusual) { return out << unusual.name; }

class Transcoding : public testing::TestWithParam<Unusual> {};

TEST_P(Transcoding, MakesItDescribableAndSaysWhy) {
  const StreamFile file({});
  ASSERT_TRUE(WriteMedia(file.Path(), "matroska", 50, GetParam().options));
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
  EXPECT_EQ(video.size(), 50U);
  ExpectDescribableVideo(video);
  EXPECT_EQ(Decode("h264", video).frames, 50);
  const auto audio = OfCodec(packets, "aac");
  ASSERT_FALSE(audio.empty());
  const Decoded decoded = Decode("aac", audio);
  EXPECT_EQ(decoded.frames, static_cast<int>(audio.size()));
  EXPECT_EQ(decoded.rate, MediaInt(*audio[0]->Media(), "rate"));
  // The first frame may lie before the beginning, and is told for it.
  for (std::size_t i = 2; i < audio.size(); ++i) {
    EXPECT_NEAR(static_cast<double>(audio[i]->TimeStamp() - audio[i - 1]->TimeStamp()),
                1.0 * AacFrameSamples * NsPerSecond / decoded.rate, NsPerMillisecond);
  }
  // Sound and pictures last equally long, whatever became of them.
  const auto span = [](const auto& of) { return of.back()->TimeStamp() - of.front()->TimeStamp(); };
  EXPECT_NEAR(static_cast<double>(span(audio)), static_cast<double>(span(video)),
              200.0 * NsPerMillisecond);
  source->Close();
}
INSTANTIATE_TEST_SUITE_P(Reasons, Transcoding,
                         testing::Values(Unusual{"BPictures", "-bf 2", "it has B pictures"},
                                         Unusual{"Slices", "-ar 48000 -x264-params slices=4",
                                                 "several slices"},
                                         Unusual{"Mp3", "-c:a libmp3lame", "it is mp3, not aac"},
                                         Unusual{"Rate", "-ar 8000", "its rate is 8000 Hz"}));

TEST(LibavSource, PassesOnWhatTakesEnhancedRtmp) {
  const struct {
    const char* format;
    const char* codecs;
    const char* video;
    const char* audio;
  } cases[] = {
      {"mp4", "-c:v libx265 -preset ultrafast -bf 3 -x265-params log-level=none -c:a libopus",
       "hevc", "opus"},
      {"mpegts", "-c:v libx265 -preset ultrafast -x265-params log-level=none -c:a eac3", "hevc",
       "eac3"},
      {"matroska", "-c:v libsvtav1 -preset 12 -c:a flac", "av1", "flac"}};
  for (const auto& [format, codecs, pictures, sound] : cases) {
    const StreamFile file({});
    ASSERT_TRUE(
        WriteMedia(file.Path(), format, 25, std::string(codecs) + " -ar 48000 2>/dev/null"));
    ConsoleCapture console;
    const auto source = NewSource(file.Path(), "pace=fast,carry=any,enhanced=true");
    ASSERT_TRUE(source->Open() && source->Start());
    const Packets packets = ReadPackets(*source);
    const auto video = OfCodec(packets, pictures);
    ASSERT_EQ(video.size(), 25U) << codecs << console.Text();
    const Decoded decoded = Decode(pictures, video);
    EXPECT_EQ(decoded.frames, 25) << codecs;
    EXPECT_EQ(decoded.width, 320);
    std::set<std::int64_t> shown;  // when, in ms
    std::set<int> offsets;
    for (const auto* picture : video) {
      int later = 0;
      picture->Media()->GetIntT("cto", later);
      offsets.insert(later);
      shown.insert((picture->TimeStamp() + later * 1000LL + 1) / NsPerMillisecond);
    }
    EXPECT_EQ(offsets.size() > 1, std::string(codecs).find("-bf 3") != std::string::npos);
    EXPECT_EQ(shown.size(), 25U) << codecs;
    EXPECT_EQ(*shown.rbegin() - *shown.begin(), 24 * 40) << codecs;
    const auto audio = OfCodec(packets, sound);
    ASSERT_FALSE(audio.empty()) << codecs;
    EXPECT_GE(Decode(sound, audio).frames, static_cast<int>(audio.size()) - 1) << codecs;
    EXPECT_EQ(MediaInt(*audio[0]->Media(), "rate"), 48000);
    EXPECT_EQ(console.Text(), "");
  }
}

TEST(LibavSource, ContinuesTheTimeLineOverRepetitions) {
  const StreamFile file({});
  ASSERT_TRUE(WriteMedia(file.Path(), "mp4", 10));
  const auto source = NewSource(file.Path(), "pace=fast,loop=3");
  ASSERT_TRUE(source->Open());
  ASSERT_TRUE(source->Start());
  const Packets packets = ReadPackets(*source);
  ExpectInOrder(packets);
  const auto video = OfCodec(packets, "h264");
  ASSERT_EQ(video.size(), 30U);
  ExpectDescribableVideo(video);
  // A repetition starts where the longer stream ended.
  const std::int64_t round = video[10]->TimeStamp() - video[0]->TimeStamp();
  EXPECT_EQ(video[20]->TimeStamp() - video[10]->TimeStamp(), round);
  EXPECT_GE(round, 10 * NsPerSecond / 25);
  EXPECT_LE(round, 10 * NsPerSecond / 25 + 2 * AacFrameSamples * NsPerSecond / 44100);
  source->Close();
}

TEST(LibavSource, EndsAStreamThatCanNoLongerBeDescribed) {
  const StreamFile plain({}), reordered({});
  ASSERT_TRUE(WriteMedia(plain.Path(), "h264", 60, "-an -flags -global_header"));
  ASSERT_TRUE(WriteMedia(reordered.Path(), "h264", 12, "-an -bf 2 -flags -global_header"));
  const Bytes pictures = FileBytes(plain.Path());
  Bytes bytes;
  bool known = false;  // parameter sets stand at the beginning alone
  for (const NalUnit& unit : SplitAnnexB(pictures)) {
    const bool set = unit.Type() == NalType::Sps || unit.Type() == NalType::Pps;
    if (!set || !known) AppendUnit(bytes, Bytes(unit.bytes.begin(), unit.bytes.end()));
    known = known || unit.IsSlice();
  }
  Append(bytes, FileBytes(reordered.Path()));
  const StreamFile file(bytes);
  ConsoleCapture console;
  const auto source = NewSource(file.Path(), "pace=fast,streams=video,format=h264,probesize=32768");
  ASSERT_TRUE(source->Open() && source->Start());
  const Packets packets = ReadPackets(*source);
  const auto video = OfCodec(packets, "h264");
  EXPECT_GE(video.size(), 60U);
  ExpectDescribableVideo(video);
  EXPECT_EQ(console.Count("the video cannot be passed on any longer: it has B pictures"), 1U)
      << console.Text();
  source->Close();
}

TEST(LibavSource, GivesSilenceWhereThereIsNoSound) {
  const StreamFile mute({}), full({});
  ASSERT_TRUE(WriteMedia(mute.Path(), "mp4", 50, "-an"));
  ASSERT_TRUE(WriteMedia(full.Path(), "mp4", 50));
  const auto read = [](const StreamFile& file, const char* options) {
    const auto source = NewSource(file.Path(), options);
    EXPECT_TRUE(source->Open() && source->Start());
    Packets packets = ReadPackets(*source);
    ExpectInOrder(packets);
    source->Close();
    return packets;
  };
  EXPECT_TRUE(OfCodec(read(mute, "pace=fast"), "aac").empty());
  const Packets packets = read(mute, "pace=fast,loop=2,silence=true");
  EXPECT_EQ(OfCodec(packets, "h264").size(), 100U);
  const auto sound = OfCodec(packets, "aac");
  const Decoded decoded = Decode("aac", sound);
  EXPECT_EQ(decoded.frames, static_cast<int>(sound.size()));
  EXPECT_EQ(decoded.rate, 48000);
  // From the first picture to the last, which is taken 40 ms before the four seconds are over.
  EXPECT_NEAR(static_cast<double>(sound.size()), 3.96 * 48000 / AacFrameSamples, 1);
  for (std::size_t i = 1; i < sound.size(); ++i) {
    EXPECT_NEAR(static_cast<double>(sound[i]->TimeStamp() - sound[i - 1]->TimeStamp()),
                static_cast<double>(AacFrameSamples) * NsPerSecond / 48000, 1);
  }
  EXPECT_EQ(BytesOf(OfCodec(read(full, "pace=fast,silence=true"), "aac")),
            BytesOf(OfCodec(read(full, "pace=fast"), "aac")));
}

TEST(LibavSource, EncodesAsAskedForAndSaysHow) {
  const StreamFile file({});
  ASSERT_TRUE(WriteMedia(file.Path(), "mp4", 50));
  ConsoleCapture console;
  const auto source = NewSource(file.Path(),
                                "pace=fast,size=160x90,fps=10,keyint=5,video_bitrate=100k,"
                                "preset=ultrafast,audio_bitrate=32k");
  ASSERT_TRUE(source->Open());
  EXPECT_EQ(
      console.Count("video is transcoded (as asked for): 160x90, 10 pictures/s, 100 kbit/s, a "
                    "key frame every 5, libx264 ultrafast; audio is transcoded (as asked "
                    "for): 44100 Hz, 2 channels, 32 kbit/s"),
      1U)
      << console.Text();
  ASSERT_TRUE(source->Start());
  const Packets packets = ReadPackets(*source);
  const auto video = OfCodec(packets, "h264");
  // Ten a second over two seconds; that at 1.96 s is the nearest to the turn at 2 s.
  ASSERT_EQ(video.size(), 21U);
  for (std::size_t i = 0; i < video.size(); ++i) EXPECT_EQ(video[i]->IsKey(), i % 5 == 0) << i;
  EXPECT_EQ(Decode("h264", video).width, 160);
  EXPECT_LT(BytesOf(OfCodec(packets, "aac")).size(), 2 * 32'000 / 8 * 3 / 2);
  source->Close();
  for (const char* wrong : {"size=161x90", "size=90", "fps=0", "fps=x", "keyint=0", "preset=fst",
                            "video_bitrate=2G", "audio_bitrate=1"}) {
    ConsoleCapture told;
    EXPECT_FALSE(NewSource(file.Path(), wrong));
    EXPECT_EQ(told.Count(wrong), 1U) << told.Text();
  }
}

TEST(LibavSource, WarnsOfPicturesThatMostPlayersCannotUse) {
  const StreamFile file({});
  ASSERT_TRUE(WriteMedia(file.Path(), "mp4", 5, "-pix_fmt yuv444p10le -profile:v high444"));
  ConsoleCapture console;
  ASSERT_TRUE(NewSource(file.Path())->Open());
  EXPECT_EQ(console.Count("10 bits and other than 4:2:0 colours"), 1U) << console.Text();
}

TEST(LibavSource, StartsFilesAtTheTimeOfStart) {
  const StreamFile file({});
  ASSERT_TRUE(WriteMedia(file.Path(), "mp4", 5));
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
  const StreamFile garbage(Bytes(15, 'x'));
  const std::pair<std::string, const char*> inputs[] = {
      {"no/such/file.mp4", "\"no/such/file.mp4\" cannot be opened: No such file or directory"},
      {"/dev/video-nowhere", "Cannot open video device /dev/video-nowhere"},
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
  const StreamFile place({});
  ASSERT_TRUE(WriteMedia(place.Path(), "mpegts", 5));
  Bytes beginning = FileBytes(place.Path());
  beginning.resize(4096);
  unlink(place.Path().c_str());
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
  EXPECT_TRUE(source->Read());
  source->Abort();
  EXPECT_EQ(source->Read(), nullptr);
  source->Close();
}

TEST(LibavSource, EndsAReadFromASilentPipeWhenAborted) {
  const StreamFile file({});
  ASSERT_TRUE(WriteMedia(file.Path(), "mpegts", 50));
  const Bytes stream = FileBytes(file.Path());
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::thread writer([&] {
    EXPECT_EQ(write(ends[1], stream.data(), stream.size()), static_cast<ssize_t>(stream.size()));
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
