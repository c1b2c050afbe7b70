#include "host/cli/Capture.h"

#include <gmock/gmock.h>

#include <cstdio>

#include "host/base/ConfigText.h"

namespace nimbo::cli {
namespace {

using ::testing::HasSubstr;

class CaptureText : public ::testing::Test {
 protected:
  std::string File(const std::string& name) {
    const auto path = ::testing::TempDir() + name;
    std::fclose(std::fopen(path.c_str(), "w"));
    return path;
  }
  bool Configure() { return CaptureConfiguration(options, text, error); }

  /// The setting of the first element of the first pipeline.
  std::string Setting(const char* key) {
    std::vector<base::ConfigEntry> pipelines;
    std::vector<base::ConfigEntry> elements;
    if (!base::ParseConfiguration(text, pipelines) || pipelines.empty()) return "unreadable";
    if (!base::ParseConfiguration(pipelines[0].settings.Get("serialize"), elements))
      return "unreadable";
    const char* value = elements.at(0).settings.Get(key);
    return value ? value : "none";
  }

  CaptureOptions options;
  std::string text;
  std::string error;
};

TEST_F(CaptureText, OfTheCameraSelectsTheEncoder) {
  options.encoder = "h264-1,W=640,H=360";
  ASSERT_TRUE(Configure());
  EXPECT_EQ(Setting("connect"), "pv:h264-1,W=640,H=360,plenckeys=vfrc-fifo");
}

TEST_F(CaptureText, KeepsFileNamesWholeThatHoldTheMarksOfTheLanguage) {
  options.inputs = {File("a+b,c=d:{e f}.mp4")};
  ASSERT_TRUE(Configure()) << error;
  EXPECT_EQ(Setting("url"), options.inputs[0]);
}

TEST_F(CaptureText, OfElementaryFilesNamesBothStreams) {
  options.inputs = {File("sound.aac"), File("picture.H264")};
  ASSERT_TRUE(Configure()) << error;
  base::ConnectText connect;
  ASSERT_TRUE(base::ParseConnect(Setting("connect"), connect));
  EXPECT_EQ(connect.name, "es");
  EXPECT_EQ(connect.options.Get("video"), options.inputs[1]);
  EXPECT_EQ(connect.options.Get("audio"), options.inputs[0]);
}

TEST_F(CaptureText, RefusesTwoFilesOfOneKindAndMixedOnes) {
  options.inputs = {File("a.aac"), File("b.aac")};
  EXPECT_FALSE(Configure());
  EXPECT_THAT(error, HasSubstr("second audio file"));
  options.inputs = {File("a.aac"), File("b.mp4")};
  EXPECT_FALSE(Configure());
  EXPECT_THAT(error, HasSubstr("b.mp4"));
}

}  // namespace
}  // namespace nimbo::cli
