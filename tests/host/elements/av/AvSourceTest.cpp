#include <gtest/gtest.h>

#include <tuple>

#include "host/capture/CaptureRegistry.h"
#include "tests/host/capture/av/MediaFile.h"
#include "tests/host/elements/Collector.h"
#include "tests/support/StreamFile.h"

namespace nimbo::stream::test {
namespace {

TEST(AvSource, DeliversTheStreamsAskedForThroughAnOutputEach) {
  ASSERT_TRUE(capture::LoadAvModule());
  const nimbo::test::StreamFile file({});
  ASSERT_TRUE(nimbo::test::WriteMedia(file.Path(), "mp4", 25, "-frames:a 40"));
  const std::tuple<const char*, std::size_t, std::size_t> cases[] = {
      {"both", 25, 40}, {"video", 25, 0}, {"audio", 0, 40}};
  for (const auto& [streams, pictures, sounds] : cases) {
    auto app = Build("av-source:pace=fast,streams=" + std::string(streams) + ",url={" +
                     file.Path() + "}+collector");
    ASSERT_TRUE(app && app->StatusSet("play")) << streams;
    EXPECT_TRUE(Reaches("AvSource", "packets", std::to_string(pictures + sounds)));
    std::size_t found = 0;
    for (const auto& packet : TheCollector().Wait(pictures + sounds)) found += packet[0] == 'h';
    EXPECT_EQ(found, pictures) << streams;
  }
}

}  // namespace
}  // namespace nimbo::stream::test
