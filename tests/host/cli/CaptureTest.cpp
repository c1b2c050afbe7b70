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

  /// What the source in the first pipeline is connected to.
  base::ConnectText Connection() {
    std::vector<base::ConfigEntry> pipelines;
    std::vector<base::ConfigEntry> elements;
    base::ConnectText connection;
    EXPECT_TRUE(Configure()) << error;
    EXPECT_TRUE(base::ParseConfiguration(text, pipelines));
    EXPECT_TRUE(base::ParseConfiguration(pipelines.at(0).settings.Get("serialize"), elements));
    EXPECT_TRUE(base::ParseConnect(elements.at(0).settings.Get("connect"), connection));
    return connection;
  }

  CaptureOptions options;
  std::string text;
  std::string error;
};

TEST_F(CaptureText, OfTheCameraSelectsTheEncoder) {
  options.encoder = "h264-1,W=640,H=360";
  const auto connection = Connection();
  EXPECT_EQ(connection.name, "h264-1");
  EXPECT_STREQ(connection.options.Get("W"), "640");
}

TEST_F(CaptureText, KeepsFileNamesWholeThatHoldTheMarksOfTheLanguage) {
  options.inputs = {File("a+b,c=d:{e f}.mp4")};
  EXPECT_EQ(Connection().options.Get("url"), options.inputs[0]);
}

TEST_F(CaptureText, OfElementaryFilesNamesBothStreams) {
  options.inputs = {File("sound.aac"), File("picture.H264")};
  const auto connection = Connection();
  EXPECT_EQ(connection.name, "es");
  EXPECT_EQ(connection.options.Get("video"), options.inputs[1]);
  EXPECT_EQ(connection.options.Get("audio"), options.inputs[0]);
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
