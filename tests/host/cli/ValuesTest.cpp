#include "host/cli/commands/Values.h"

#include <gmock/gmock.h>

namespace nimbo::cli {
namespace {

TEST(Seconds, AreANumberOrNumbersWithUnitsThatBecomeSmaller) {
  EXPECT_EQ(ParseSeconds("90"), 90);
  EXPECT_EQ(ParseSeconds("2.5"), 2.5);
  EXPECT_EQ(ParseSeconds("500ms"), 0.5);
  EXPECT_EQ(ParseSeconds("1d2h3m4.5s"), 86400 + 7200 + 180 + 4.5);
  for (const char* wrong : {"", "s", "-1", "1e9", "3x", "1.2.3", "1h30", "1s1m", "1s1s", "inf"}) {
    EXPECT_EQ(ParseSeconds(wrong), std::nullopt) << wrong;
  }
}

}  // namespace
}  // namespace nimbo::cli
