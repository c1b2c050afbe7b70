#include "host/capture/av/H264Units.h"

#include <gtest/gtest.h>

#include "tests/support/MediaSamples.h"

namespace nimbo::test {
namespace {

using capture::av::DescribablePicture;
using capture::av::NalUnit;
using capture::av::SplitAnnexB;

TEST(SplitAnnexB, FindsUnitsBehindBothStartCodesWithoutTheZerosBetweenThem) {
  const Bytes stream = {0, 0, 0, 1, 0x67, 0x42, 0, 0, 1, 0x68, 0xCE, 0,
                        0, 0, 0, 1, 0x65, 0x88, 0, 3, 0, 0,    1};
  const std::vector<NalUnit> units = SplitAnnexB(stream.data(), stream.size());
  ASSERT_EQ(units.size(), 3U);
  EXPECT_EQ(Bytes(units[0].data, units[0].data + units[0].size), (Bytes{0x67, 0x42}));
  EXPECT_EQ(Bytes(units[1].data, units[1].data + units[1].size), (Bytes{0x68, 0xCE}));
  EXPECT_EQ(Bytes(units[2].data, units[2].data + units[2].size), (Bytes{0x65, 0x88, 0, 3}));
}

TEST(SplitAnnexB, FindsNothingInWhatHoldsNoUnit) {
  for (const Bytes& stream :
       {Bytes{}, Bytes{0, 0}, Bytes{0, 0, 1}, Bytes{0, 0, 0, 1, 0, 0}, Bytes{1, 2, 3, 4, 5}}) {
    EXPECT_TRUE(SplitAnnexB(stream.data(), stream.size()).empty());
  }
}

struct Picture {
  std::vector<Bytes> units;
  bool describable;
};
class Describable : public testing::TestWithParam<Picture> {};

TEST_P(Describable, IsOneSlicePredictedFromOneSide) {
  const Bytes stream = AnnexB(GetParam().units, 3);
  const char* why = nullptr;
  EXPECT_EQ(DescribablePicture(SplitAnnexB(stream.data(), stream.size()), why),
            GetParam().describable);
  EXPECT_EQ(why == nullptr, GetParam().describable);
}
// Behind the header byte: first_mb_in_slice 0 is the bit 1; then slice_type 0 (P) is 1,
// 5 (P throughout) is 00110, 1 (B) is 010, 6 (B throughout) is 00111.
INSTANTIATE_TEST_SUITE_P(Pictures, Describable,
                         testing::Values(Picture{{{0x67, 1}, {0x68, 1}, {0x65, 0x88}}, true},
                                         Picture{{{0x41, 0xC0}}, true},
                                         Picture{{{0x41, 0x98}}, true}, Picture{{{0x06, 1}}, true},
                                         Picture{{{0x41, 0xA0}}, false},
                                         Picture{{{0x01, 0x9C}}, false},
                                         Picture{{{0x41, 0xC0}, {0x41, 0x58}}, false},
                                         Picture{{{0x42, 0xC0}}, false}));

}  // namespace
}  // namespace nimbo::test
