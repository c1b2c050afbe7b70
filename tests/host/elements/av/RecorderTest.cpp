#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "host/capture/CaptureRegistry.h"
#include "tests/host/capture/av/MediaFile.h"
#include "tests/host/elements/Collector.h"
#include "tests/support/ConsoleCapture.h"
#include "tests/support/StreamFile.h"

namespace nimbo::stream::test {
namespace {

class RecorderTest : public testing::Test {
 protected:
  static constexpr int Pictures = 75;

  void SetUp() override {
    ASSERT_TRUE(capture::LoadAvModule());
    ASSERT_TRUE(nimbo::test::WriteMedia(film.Path(), "mp4", Pictures));
    std::filesystem::create_directory(folder);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  /// Records the film, to its last packet.
  void Record(const std::string& settings) {
    auto app = Build("av-source:pace=fast,url={" + film.Path() + "}+recorder:file={" + folder +
                     "/%Y.mp4}" + settings);
    ASSERT_TRUE(app && app->StatusSet("play"));
    const std::size_t all = Decoded(film.Path(), "v").size() + Decoded(film.Path(), "a").size() - 1;
    while (true) {
      std::string taken;
      ASSERT_TRUE(Element("AvSource").GetStr("packets", taken));
      if (std::stoul(taken) >= all) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  /// The sums of all pictures ("v") or frames of sound ("a") of a file, as far as they can be read.
  std::vector<std::string> Decoded(const std::string& path, const std::string& kind) const {
    const std::string sums = folder + "/sums";
    nimbo::test::Ffmpeg("-i \"" + path + "\" -map 0:" + kind + " -f framemd5 \"" + sums + "\"");
    std::vector<std::string> decoded;
    std::ifstream file(sums);
    for (std::string line; std::getline(file, line);) {
      if (line[0] != '#') decoded.push_back(line.substr(line.rfind(' ')));
    }
    return decoded;
  }
  /// The recordings, in the order of their names.
  std::vector<std::string> Files() const {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.path().extension() == ".mp4") files.push_back(entry.path());
    }
    const auto length = [](const std::string& one, const std::string& other) {
      return std::pair(one.size(), one) < std::pair(other.size(), other);
    };
    std::sort(files.begin(), files.end(), length);
    return files;
  }

  const nimbo::test::StreamFile film{{}};
  const std::string folder = film.Path() + "-recordings";
};

TEST_F(RecorderTest, SegmentsHoldEveryPictureAndOneThatIsCutOffPlaysUpToItsLastSecond) {
  ASSERT_NO_FATAL_FAILURE(Record(",segment=1"));
  std::vector<std::string> pictures;
  for (const std::string& file : Files()) {
    for (const std::string& sum : Decoded(file, "v")) pictures.push_back(sum);
    EXPECT_FALSE(Decoded(file, "a").empty());
  }
  EXPECT_EQ(Files().size(), 3u);  // a key frame each 0.48 s: 0.96 s are too short for a segment
  EXPECT_EQ(pictures, Decoded(film.Path(), "v"));

  ASSERT_NO_FATAL_FAILURE(Record(""));
  ASSERT_EQ(Files().size(), 4u) << "another one, in none's place";
  const std::string whole = Files().back();
  std::filesystem::resize_file(whole, std::filesystem::file_size(whole) * 2 / 3);
  EXPECT_GE(Decoded(whole, "v").size(), Pictures * 2u / 3 - 25);
}

TEST_F(RecorderTest, AFullDiskIsToldOnceAndHoldsNobodyUp) {
  const auto before = std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit small{static_cast<rlim_t>(20000), limit.rlim_max};
  nimbo::test::ConsoleCapture console;
  setrlimit(RLIMIT_FSIZE, &small);
  Record("");
  setrlimit(RLIMIT_FSIZE, &limit);
  std::signal(SIGXFSZ, before);
  EXPECT_EQ(console.Count("cannot be written: File too large; another file is tried in a minute"),
            1u);
  EXPECT_EQ(Files().size(), 1u);
}

}  // namespace
}  // namespace nimbo::stream::test
