#include "host/capture/H264.h"

#include <gtest/gtest.h>

#include "tests/support/Bytes.h"

namespace nimbo::test {
namespace {

using capture::NalUnit;
using capture::SplitAnnexB;

TEST(SplitAnnexB, FindsUnitsBehindBothStartCodesWithoutTheZerosBetweenThem) {
  const Bytes stream = {0, 0, 0, 1, 0x67, 0x42, 0, 0, 1, 0x68, 0xCE, 0,
                        0, 0, 0, 1, 0x65, 0x88, 0, 3, 0, 0,    1};
  const std::vector<NalUnit> units = SplitAnnexB(stream);
  ASSERT_EQ(units.size(), 3U);
  EXPECT_EQ(Bytes(units[0].bytes.begin(), units[0].bytes.end()), (Bytes{0x67, 0x42}));
  EXPECT_EQ(Bytes(units[1].bytes.begin(), units[1].bytes.end()), (Bytes{0x68, 0xCE}));
  EXPECT_EQ(Bytes(units[2].bytes.begin(), units[2].bytes.end()), (Bytes{0x65, 0x88, 0, 3}));
}

TEST(SplitAnnexB, FindsNothingInWhatHoldsNoUnit) {
  for (const Bytes& stream :
       {Bytes{}, Bytes{0, 0}, Bytes{0, 0, 1}, Bytes{0, 0, 0, 1, 0, 0}, Bytes{1, 2, 3, 4, 5}}) {
    EXPECT_TRUE(SplitAnnexB(stream).empty());
  }
}

}  // namespace
}  // namespace nimbo::test
