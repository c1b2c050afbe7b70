#include <gtest/gtest.h>

#include <memory>

#include "plugin/bytes/AacTag.h"
#include "plugin/bytes/AvcTag.h"
#include "tests/support/MediaSamples.h"

namespace nimbo::plugin {
namespace {

using Octets = test::Bytes;
using test::AnnexB;
using test::Nal;

Bytes View(const Octets& bytes) { return {bytes.data(), bytes.size()}; }

TEST(AvcTag, ParameterSetLengthsFillTheirSixteenBits) {
  const Octets sps = Nal(0x67, 0xFFFF);
  const Octets pps = Nal(0x68, 0x0123);
  Octets body(AvcSequenceHeaderSize(sps.size(), pps.size()));
  WriteAvcSequenceHeader(body.data(), View(sps), View(pps));
  EXPECT_EQ(test::ReadBig(&body[11], 2), 0xFFFFu);
  EXPECT_EQ(test::ReadBig(&body[14 + sps.size()], 2), 0x0123u);
  EXPECT_EQ(body.back(), pps.back());
}

struct ScanCase {
  const char* what;
  Octets accessUnit;
  Octets payload;
};

class SliceScan : public testing::TestWithParam<ScanCase> {};

TEST_P(SliceScan, FindsTheFirstSliceAndReadsNothingBehindTheEnd) {
  // In memory of exactly this size, for the address sanitizer.
  const Octets& in = GetParam().accessUnit;
  const std::unique_ptr<unsigned char[]> exact(new unsigned char[in.size()]);
  std::copy(in.begin(), in.end(), exact.get());
  const Bytes found = FindFirstSlice({exact.get(), in.size()});
  EXPECT_EQ(Octets(found.data, found.data + found.size), GetParam().payload);
  EXPECT_EQ(found.data + found.size, exact.get() + in.size());
}

const Octets Idr = Nal(test::IdrSlice, 9);
const Octets Inter = Nal(test::InterSlice, 9);

INSTANTIATE_TEST_SUITE_P(
    AccessUnits, SliceScan,
    testing::Values(
        ScanCase{"ParameterSetsInFront", AnnexB({test::Sps, test::Pps, Idr}), Idr},
        ScanCase{"ShortStartCode", AnnexB({Inter}, 3), Inter},
        ScanCase{"DelimiterAndSei",
                 AnnexB({Nal(test::AccessUnitDelimiter, 2), Nal(test::Sei, 12), Inter}), Inter},
        ScanCase{"NoStartCode", Octets{0x65, 1, 2, 3, 4, 5, 6}, Octets{2, 3, 4, 5, 6}},
        ScanCase{"NoSlice", AnnexB({test::Sps}), Octets{0xDA, 0x04, 0x03, 0x6C, 0x80}},
        ScanCase{"SecondSliceStaysInside", AnnexB({Idr, Idr}),
                 [] {
                   Octets both = Idr;
                   test::Append(both, AnnexB({Idr}));
                   return both;
                 }()},
        ScanCase{"OnlyZeros", Octets(64, 0), Octets(5, 0)},
        ScanCase{"StartCodeAtTheEnd", Octets{9, 9, 0, 0, 0, 1}, Octets{9, 0, 0, 0, 1}},
        ScanCase{"StartCodeLeavesTwoBytes", Octets{0, 0, 0, 1, 0x67, 0x42}, Octets{0x67, 0x42}},
        ScanCase{"Empty", Octets{}, Octets{}}, ScanCase{"OneByte", Octets{1}, Octets{1}}),
    [](const auto& scan) { return std::string(scan.param.what); });

TEST(AacTag, AudioSpecificConfigFollowsItsTables) {
  const struct {
    AacFormat format;
    unsigned config;
  } cases[] = {
      {{0, 1, 88200}, 0x0888},  {{1, 1, 64000}, 0x1108}, {{2, 2, 48000}, 0x1990},
      {{1, 1, 48000}, 0x1188},  {{1, 2, 44100}, 0x1210}, {{1, 2, 32000}, 0x1290},
      {{1, 2, 24000}, 0x1310},  {{1, 2, 22050}, 0x1390}, {{1, 1, 16000}, 0x1408},
      {{1, 1, 12000}, 0x1488},  {{1, 1, 11025}, 0x1508}, {{1, 2, 96000}, 0x1010},  // index 0
      {{1, 1, 8000}, 0x1008},   {{1, 1, 7350}, 0x1008},   // not told: index 0
      {{1, 1, -1}, 0x1008},     {{3, 1, 44100}, 0x0208},  // unknown: 0
      {{-1, 1, 44100}, 0x0208}, {{1, 0, 44100}, 0x1200}, {{1, 6, 44100}, 0x1200},
      {{1, -2, 44100}, 0x1200},
  };
  for (const auto& known : cases) {
    EXPECT_EQ(AudioSpecificConfig(known.format), known.config)
        << known.format.profile << " " << known.format.channels << " " << known.format.rate;
  }
}

}  // namespace
}  // namespace nimbo::plugin
