#include <gtest/gtest.h>

#include <algorithm>

#include "host/capture/CaptureSource.h"
#include "tests/host/capture/av/MediaFile.h"
#include "tests/host/elements/Collector.h"
#include "tests/support/ConsoleCapture.h"

namespace nimbo::stream::test {
namespace {

using nimbo::test::ConsoleCapture;
using nimbo::test::TemporaryFile;

TEST(AvSource, DeliversTheStreamsAskedForThroughAnOutputEach) {
  ASSERT_TRUE(capture::LoadAvModule());
  const TemporaryFile file("element.mp4");
  nimbo::test::MediaForm form;
  form.pictures = 25;
  const nimbo::test::Encoded encoded = WriteMedia(file.Path(), form);
  ASSERT_TRUE(encoded.written);
  const struct {
    const char* streams;
    std::size_t video;
    std::size_t audio;
  } cases[] = {{"both", encoded.video.size(), encoded.audio.size()},
               {"video", encoded.video.size(), 0},
               {"audio", 0, encoded.audio.size()}};
  for (const auto& [streams, video, audio] : cases) {
    auto app = Build("av-source:pace=fast,streams=" + std::string(streams) + ",url={" +
                     file.Path() + "}+collector");
    ASSERT_TRUE(app);
    ASSERT_TRUE(app->StatusSet("play")) << streams;
    ASSERT_TRUE(Reaches("AvSource", "packets", std::to_string(video + audio)));
    const auto seen = TheCollector().Wait(video + audio);
    const auto of = [&seen](const char* codec) {
      return static_cast<std::size_t>(
          std::count_if(seen.begin(), seen.end(), [codec](const std::string& packet) {
            return packet.compare(0, packet.find(' '), codec) == 0;
          }));
    };
    EXPECT_EQ(of("h264"), video);
    EXPECT_EQ(of("aac"), audio);
  }
}

TEST(AvSource, ThatCannotBeOpenedSaysWhyOnce) {
  ASSERT_TRUE(capture::LoadAvModule());
  for (const char* settings : {"url={no/such/file.mp4}", "streams=pictures,url=x", "pace=fast"}) {
    auto app = Build(std::string("av-source:") + settings + "+collector");
    ASSERT_TRUE(app);
    ConsoleCapture console;
    EXPECT_FALSE(app->StatusSet("play"));
    EXPECT_EQ(console.Lines().size(), 1U) << console.Text();
    EXPECT_EQ(console.Count("av: "), 1U) << console.Text();
  }
}

}  // namespace
}  // namespace nimbo::stream::test
