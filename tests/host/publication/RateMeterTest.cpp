#include "host/publication/RateMeter.h"

#include <gtest/gtest.h>

namespace nimbo::publication {
namespace {

using std::chrono::seconds;

TEST(RateMeter, MeasuresTheLastSecondsOnly) {
  RateMeter meter;
  const RateMeter::Time start{};
  EXPECT_EQ(meter.BitsPerSecond(), 0);
  meter.Add(start, 1000);
  EXPECT_EQ(meter.BitsPerSecond(), 0);
  meter.Add(start + seconds(1), 2000);
  EXPECT_DOUBLE_EQ(meter.BitsPerSecond(), 8000);
  // The burst before has left the window when the flow stops.
  meter.Add(start + seconds(10), 2000);
  meter.Add(start + seconds(11), 2000);
  EXPECT_EQ(meter.BitsPerSecond(), 0);
}

}  // namespace
}  // namespace nimbo::publication
