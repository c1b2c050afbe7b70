#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "host/capture/CaptureRegistry.h"
#include "host/capture/Monotonic.h"
#include "log/Line.h"
#include "tests/support/ConsoleCapture.h"
#include "tests/support/MediaSamples.h"
#include "tests/support/StreamFile.h"

namespace nimbo::capture {
namespace {

using test::Bytes;
using test::Millisecond;
using testing::ElementsAre;
using testing::HasSubstr;

std::unique_ptr<CaptureSource> Make(const std::string& options) {
  return CaptureRegistry::Global().Make("es", base::AttrSet(options.c_str()));
}

std::unique_ptr<CaptureSource> Opened(const std::string& options) {
  auto source = Make(options);
  if (!source || !source->Open() || !source->Start()) return nullptr;
  return source;
}

/// All packets as "CODEC TIME-IN-MS SEQUENCE", key frames with a mark.
std::vector<std::string> ReadAll(CaptureSource& source) {
  std::vector<std::string> all;
  while (Held<stream::Packet> packet{source.Read()}) {
    all.push_back(packet->Media()->Codec() +
                  (" " + std::to_string(packet->TimeStamp() / Millisecond)) + " " +
                  std::to_string(packet->Sequence()) + (packet->IsKey() ? " K" : ""));
  }
  return all;
}

TEST(CaptureRegistryTest, ANameEndsInANumberWhereItsEntrySaysSoAndTheLastOneCounts) {
  std::vector<std::string> made;
  auto& registry = CaptureRegistry::Global();
  const auto add = [&](const char* entry, const char* mark) {
    registry.Add(entry, [&made, mark](const std::string& name, const base::AttrSet&) {
      made.push_back(mark + name);
      return std::unique_ptr<CaptureSource>();
    });
  };
  const std::size_t before = registry.Sources().size();
  add("cam-", "first ");
  add("cam-", "");
  add("cam-x", "own ");
  EXPECT_EQ(registry.Sources().size(), before + 2);
  for (const char* name : {"cam-0", "cam-12", "cam-x", "cam-1a", "xcam-1"}) {
    registry.Make(name, {});
  }
  EXPECT_THAT(made, ElementsAre("cam-0", "cam-12", "own cam-x"));
}

TEST(EsSourceTest, StreamsAreDescribedAndMergedByTime) {
  const test::StreamFile video(test::VideoStream(3, 2, 60));
  const test::StreamFile audio(test::AdtsStream(4, 200));
  auto source =
      Opened("video=" + video.Path() + ",audio=" + audio.Path() + ",fr=25,pace=fast,loop=2");
  ASSERT_TRUE(source);
  EXPECT_THAT(source->Outputs(), ElementsAre("h264", "aac"));
  ASSERT_EQ(source->Streams().size(), 2U);
  int width = 0;
  unsigned char* sps = nullptr;
  unsigned int size = 0;
  EXPECT_TRUE(source->Streams()[0]->GetIntT("w", width));
  EXPECT_EQ(width, 256);
  ASSERT_TRUE(source->Streams()[0]->Get("sps", sps));
  ASSERT_TRUE(source->Streams()[0]->GetIntT("isps", size));
  EXPECT_EQ(Bytes(sps, sps + size), test::Sps);
  for (const auto& [name, expected] : std::initializer_list<std::pair<const char*, int>>{
           {"adtslen", 7}, {"profile", 1}, {"channel", 2}, {"rate", 44100}}) {
    int value = 0;
    EXPECT_TRUE(source->Streams()[1]->GetIntT(name, value));
    EXPECT_EQ(value, expected) << name;
  }
  EXPECT_THAT(ReadAll(*source),
              ElementsAre("h264 0 1 K", "aac 0 1 K", "aac 23 2 K", "h264 40 2", "aac 46 3 K",
                          "aac 69 4 K", "h264 80 3 K",
                          // The longer stream, of pictures, lasts 120 ms.
                          "h264 120 4 K", "aac 120 5 K", "aac 143 6 K", "h264 160 5", "aac 166 7 K",
                          "aac 189 8 K", "h264 200 6 K"));
}

TEST(EsSourceTest, RoundsFollowEachOtherWithoutAGapAndWithoutEnd) {
  const test::StreamFile audio(test::AdtsStream(3, 100));
  const auto source = Opened("audio=" + audio.Path() + ",loop=true,pace=fast");
  ASSERT_TRUE(source);
  for (std::int64_t frame = 0; frame < 100; ++frame) {
    const Held<stream::Packet> packet(source->Read());
    ASSERT_TRUE(packet);
    // Three frames of 1,024 samples last as long as three others, but for what a ns cannot tell.
    EXPECT_LE(std::abs(packet->TimeStamp() - frame * 1024 * 1000000000 / 44100), 100);
  }
}

TEST(EsSourceTest, TheRateIsTheOneAskedForElseThatOfTheStreamElseThirty) {
  // Made with x264, at 60 pictures a second.
  const Bytes sixty = {0x67, 0x7a, 0x00, 0x1f, 0xbc, 0xd9, 0x40, 0xa0, 0x2f,
                       0xf8, 0x9c, 0x04, 0x40, 0x00, 0x00, 0x03, 0x00, 0x40,
                       0x00, 0x00, 0x1e, 0x03, 0xc6, 0x0c, 0x65, 0x80};
  const struct {
    Bytes sps;
    const char* options;
    std::int64_t period;
  } cases[] = {{sixty, ",fr=50", 20000000}, {sixty, "", 16666666}, {test::Sps, "", 33333333}};
  for (const auto& known : cases) {
    const Bytes key = test::AnnexB({known.sps, test::Pps, test::Nal(test::IdrSlice, 50)});
    Bytes stream = key;
    test::Append(stream, key);
    const test::StreamFile video(stream);
    auto source = Opened("video=" + video.Path() + ",pace=fast" + known.options);
    ASSERT_TRUE(source);
    const Held<stream::Packet> first(source->Read()), second(source->Read());
    ASSERT_TRUE(second);
    EXPECT_EQ(second->TimeStamp() - first->TimeStamp(), known.period);
  }
}

TEST(EsSourceTest, NewParameterSetsMakeANewMedia) {
  Bytes other = test::Sps;
  other[3] = 0x1F;
  Bytes stream = test::VideoStream(2, 2, 50);
  test::Append(stream, test::AnnexB({other, test::Pps, test::Nal(test::IdrSlice, 50)}));
  const test::StreamFile video(stream);
  auto source = Opened("video=" + video.Path() + ",pace=fast");
  ASSERT_TRUE(source);
  const Held<stream::Packet> first = source->Read();
  const Held<stream::Packet> second = source->Read();
  const Held<stream::Packet> third = source->Read();
  ASSERT_TRUE(third);
  EXPECT_EQ(first->Media(), source->Streams()[0]);
  EXPECT_EQ(second->Media(), first->Media());
  unsigned char* sps = nullptr;
  ASSERT_NE(third->Media(), first->Media());
  ASSERT_TRUE(third->Media()->Get("sps", sps));
  EXPECT_EQ(sps[3], 0x1F);
}

TEST(EsSourceTest, InRealTimePacketsComeWhenTheyAreDueAndAStopHoldsTimeUp) {
  const test::StreamFile video(test::VideoStream(3, 1, 50));
  const std::int64_t before = MonotonicNow();
  auto source = Opened("video=" + video.Path() + ",fr=50");
  ASSERT_TRUE(source);
  const Held<stream::Packet> first = source->Read();
  const Held<stream::Packet> second = source->Read();
  EXPECT_GE(first->TimeStamp(), before);
  EXPECT_GE(MonotonicNow(), second->TimeStamp());
  EXPECT_EQ(second->TimeStamp() - first->TimeStamp(), 20 * Millisecond);
  source->Abort();
  EXPECT_EQ(source->Read(), nullptr);
  EXPECT_EQ(source->Read(), nullptr) << "an abort holds";
  const std::int64_t restart = MonotonicNow();
  ASSERT_TRUE(source->Start());
  const std::int64_t restarted = MonotonicNow();
  const Held<stream::Packet> third = source->Read();
  ASSERT_TRUE(third);
  EXPECT_GE(third->TimeStamp(), restart);
  EXPECT_LE(third->TimeStamp(), restarted + 20 * Millisecond);
  EXPECT_EQ(third->Sequence(), 3U);
}

TEST(EsSourceTest, APipeThatStaysSilentIsGivenUpInOneLine) {
  const test::StreamFile place({});
  const std::string& path = place.Path();
  unlink(path.c_str());
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  auto source = Make("audio=" + path + ",wait=0.1");
  ASSERT_TRUE(source);
  const auto fails = [&source](const char* line) {
    test::ConsoleCapture console;
    EXPECT_FALSE(source->Open());
    source->Close();
    EXPECT_EQ(console.Lines().size(), 1U) << console.Text();
    EXPECT_THAT(console.Text(), HasSubstr(line));
  };
  fails("no frame came within 0.1 s");
  const int writer = open(path.c_str(), O_RDWR | O_CLOEXEC);
  const Bytes stream = test::AdtsStream(1, 64);
  ASSERT_EQ(write(writer, stream.data(), 20), 20);
  fails("no frame came within 0.1 s");
  // It may be silent later on.
  ASSERT_EQ(write(writer, stream.data(), stream.size()), static_cast<ssize_t>(stream.size()));
  ASSERT_TRUE(source->Open() && source->Start());
  EXPECT_TRUE(source->Read());
  std::thread late([&] { source->Abort(); });
  EXPECT_EQ(source->Read(), nullptr);
  late.join();
  close(writer);
}

struct Mistake {
  const char* name;
  std::string options;  ///< FILE stands for the path of a file with these bytes
  Bytes bytes;
  const char* line;  ///< what the one red line tells
};

class EsMistakeTest : public testing::TestWithParam<Mistake> {};

TEST_P(EsMistakeTest, IsToldInOneRedLine) {
  const test::StreamFile file(GetParam().bytes);
  std::string options = GetParam().options;
  if (const auto at = options.find("FILE"); at != std::string::npos) {
    options.replace(at, 4, file.Path());
  }
  test::ConsoleCapture console;
  {
    auto source = Make(options);
    if (source && source->Open() && source->Start()) ReadAll(*source);
  }
  base::cout << "done\n";
  ASSERT_TRUE(console.WaitFor("done"));
  const auto lines = console.Lines();
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const auto& line) { return line.colour == '1'; }),
            1)
      << console.Text();
  EXPECT_THAT(console.Text(), HasSubstr(GetParam().line));
}

Bytes Cut(Bytes bytes, std::size_t size) {
  bytes.resize(size);
  return bytes;
}
Bytes Damaged(Bytes bytes, std::size_t at, unsigned char value) {
  bytes[at] = value;
  return bytes;
}

class EsWarningTest : public testing::TestWithParam<Mistake> {};

TEST_P(EsWarningTest, IsGivenOnceWhenTheFileIsOpened) {
  const test::StreamFile file(GetParam().bytes);
  test::ConsoleCapture console;
  auto source = Make(GetParam().options + "=" + file.Path() + ",pace=fast,loop=2");
  ASSERT_TRUE(source && source->Open());
  const std::string opening = console.Text();
  ASSERT_TRUE(source->Start());
  EXPECT_FALSE(ReadAll(*source).empty());
  EXPECT_EQ(console.Text(), opening);
  const bool warned = *GetParam().line != 0;
  ASSERT_EQ(console.Lines().size(), warned ? 1U : 0U) << opening;
  if (!warned) return;
  EXPECT_EQ(console.Lines()[0].colour, '3');
  EXPECT_THAT(opening, HasSubstr(GetParam().line));
  EXPECT_THAT(opening, HasSubstr("pv:av,url=" + file.Path() + ",transcode=true"));
}

/// A few usual pictures and then `last`.
Bytes Pictures(const std::vector<Bytes>& last) {
  Bytes stream = test::VideoStream(5, 5, 50);
  test::Append(stream, test::AnnexB(last));
  return stream;
}
Bytes Slice(unsigned char header, unsigned char first) {
  Bytes slice = test::Nal(header, 50);
  slice[1] = first;
  return slice;
}
Bytes Pps(unsigned char last) {
  Bytes pps = test::Pps;
  pps.back() = last;
  return pps;
}

INSTANTIATE_TEST_SUITE_P(
    Streams, EsWarningTest,
    testing::Values(
        // first_mb_in_slice is 1; slice_type is 010 (B), 00111 (all B), 00110 (all P).
        Mistake{"BPicture", "video", Pictures({Slice(test::InterSlice, 0b10100000)}), "B pictures"},
        Mistake{"AllB", "video", Pictures({Slice(test::InterSlice, 0b10011100)}), "B pictures"},
        Mistake{"AllP", "video", Pictures({Slice(test::InterSlice, 0b10011000)}), ""},
        Mistake{"Slices", "video",
                Pictures({Slice(test::InterSlice, 0xC0), Slice(test::InterSlice, 0x40)}),
                "several slices"},
        Mistake{"Partitions", "video", Pictures({Slice(0x42, 0xC0), Slice(0x43, 0x40)}),
                "partitioned"},
        Mistake{"SeveralPps", "video",
                Pictures({test::Sps, Pps(0x71), Pps(0x72), Slice(test::IdrSlice, 0x88)}),
                "several parameter sets"},
        Mistake{"ChangedPps", "video",
                Pictures({test::Sps, Pps(0x71), Slice(test::IdrSlice, 0x88)}), "sets change"},
        Mistake{"RepeatedPps", "video",
                Pictures({test::Sps, test::Pps, test::Pps, Slice(test::IdrSlice, 0x88)}), ""},
        // sampling_frequency_index 11 and 0, LC in stereo; then Main.
        Mistake{"Rate8000", "audio", Damaged(test::AdtsStream(1, 64), 2, 0x6C), "rate of 8000 Hz"},
        Mistake{"Rate11025", "audio", Damaged(test::AdtsStream(1, 64), 2, 0x68), ""},
        Mistake{"Rate96000", "audio", Damaged(test::AdtsStream(1, 64), 2, 0x40), ""},
        Mistake{"ThreeChannels", "audio", Damaged(test::AdtsStream(1, 64), 3, 0xC0), "3 channels"},
        Mistake{"Main", "audio", Damaged(test::AdtsStream(1, 64), 2, 0x10), "no AAC LC"}),
    [](const auto& warning) { return warning.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Mistakes, EsMistakeTest,
    testing::Values(
        Mistake{"NoSuchFile", "video=/nonexistent.h264", {}, "No such file or directory"},
        Mistake{"NoSps", "video=FILE,pace=fast", test::AnnexB({test::Nal(test::IdrSlice, 30)}),
                "in all of its 34 bytes"},
        Mistake{"DamagedSps", "video=FILE",
                test::AnnexB({{0x67, 0x42, 0, 9}, test::Pps, test::Nal(test::IdrSlice, 9)}),
                "the SPS at byte 4 is damaged"},
        Mistake{"NotAdts", "audio=FILE", Bytes(50, 0x11), "no ADTS header at byte 0"},
        Mistake{"LostSync", "audio=FILE,pace=fast", Damaged(test::AdtsStream(3, 64), 64, 0),
                "no ADTS header at byte 64"},
        Mistake{"CutFrame", "audio=FILE,pace=fast", Cut(test::AdtsStream(3, 64), 150),
                "the ADTS frame at byte 128 is cut off after 22 bytes"},
        Mistake{"SeveralBlocks", "audio=FILE", Damaged(test::AdtsStream(1, 64), 6, 0xFD),
                "holds 2 raw data blocks"},
        Mistake{"ZeroRate", "video=FILE,fr=0", {}, "fr=0: frames per second"},
        Mistake{"NoWait", "video=FILE,wait=0", {}, "wait=0: the seconds that the first frame"},
        Mistake{"LongWait", "video=FILE,wait=86401", {}, "wait=86401: the seconds that the first"},
        Mistake{"LongestWait", "video=/nonexistent,wait=86400", {}, "No such file or directory"}),
    [](const auto& mistake) { return mistake.param.name; });

}  // namespace
}  // namespace nimbo::capture
