#include "host/publication/Capture.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdio>

#include "host/base/ConfigText.h"

namespace nimbo::publication {
namespace {

using ::testing::HasSubstr;

class CaptureText : public ::testing::Test {
 protected:
  std::string File(const std::string& name) {
    const auto path = ::testing::TempDir() + name;
    std::fclose(std::fopen(path.c_str(), "w"));
    return path;
  }
  Result<std::string> Configure() { return CaptureConfiguration(options); }

  CaptureOptions options;
};

TEST_F(CaptureText, KeepsFileNamesWholeThatHoldTheMarksOfTheLanguage) {
  options.inputs = {File("a+b,c=d:{e f}.mp4")};
  std::vector<base::ConfigEntry> pipelines;
  std::vector<base::ConfigEntry> elements;
  base::ConnectText connection;
  auto text = Configure();
  ASSERT_TRUE(text) << text.Why();
  ASSERT_TRUE(base::ParseConfiguration(*text, pipelines));
  ASSERT_TRUE(base::ParseConfiguration(pipelines.at(0).settings.Get("serialize"), elements));
  ASSERT_TRUE(base::ParseConnect(elements.at(0).settings.Get("connect"), connection));
  EXPECT_EQ(connection.options.Get("url"), options.inputs[0]);
}

TEST_F(CaptureText, LeavesANamedPipeToWhoeverReadsIt) {
  options.inputs = {testing::TempDir() + "capture.h264"};
  ASSERT_EQ(mkfifo(options.inputs[0].c_str(), 0600), 0);
  EXPECT_TRUE(Configure());  // nobody writes into it yet
  std::remove(options.inputs[0].c_str());
}

TEST_F(CaptureText, RefusesTwoFilesOfOneKindAndMixedOnes) {
  options.inputs = {File("a.aac"), File("b.aac")};
  EXPECT_THAT(Configure().Why(), HasSubstr("second audio file"));
  options.inputs = {File("a.aac"), File("b.mp4")};
  EXPECT_THAT(Configure().Why(), HasSubstr("b.mp4"));
}

}  // namespace
}  // namespace nimbo::publication
