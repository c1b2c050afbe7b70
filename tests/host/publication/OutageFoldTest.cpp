#include "host/publication/OutageFold.h"

#include <gtest/gtest.h>

namespace nimbo::publication {
namespace {

using std::chrono::seconds;

TEST(OutageFold, TellsTheBeginningACountAMinuteAndTheEnd) {
  OutageFold fold;
  constexpr seconds Start{1000};
  for (int outage = 0; outage < 2; ++outage) {
    const seconds start = Start + seconds(outage * 3600);
    EXPECT_EQ(fold.Tell("rtmp_send_data_fail", start), "rtmp_send_data_fail");
    EXPECT_EQ(fold.Tell("rtmp_reconnect_fail", start), "rtmp_reconnect_fail");
    for (int i = 1; i < 4; ++i) {
      EXPECT_EQ(fold.Tell("rtmp_send_data_fail", start + seconds(15 * i)), "");
      EXPECT_EQ(fold.Tell("rtmp_reconnect_fail", start + seconds(15 * i)), "");
    }
    EXPECT_EQ(fold.Tell("rtmp_reconnect_fail", start + seconds(60)),
              "rtmp_reconnect_fail (failed 5 times in 60 s)");
    EXPECT_EQ(fold.Tell("rtmp_disconnected", start + seconds(75)), "");
    EXPECT_EQ(fold.Tell("bit_rate", start + seconds(75)), "bit_rate") << "of something else";
    EXPECT_EQ(fold.Tell("rtmp_reconnect_success", start + seconds(80)),
              "rtmp_reconnect_success (failed 6 times in 80 s)");
  }
  EXPECT_EQ(fold.Tell("rtmp_connected", Start), "rtmp_connected");
}

}  // namespace
}  // namespace nimbo::publication
