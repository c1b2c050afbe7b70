#include "host/capture/AccessUnits.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/support/MediaSamples.h"
#include "tests/support/StreamFile.h"

namespace nimbo::capture {
namespace {

using test::AnnexB;
using test::Bytes;
using test::Nal;

struct Unit {
  Bytes bytes;
  std::uint64_t offset;
  bool key;
};

/// All units of a stream, read from a file.
std::vector<Unit> ReadAll(const Bytes& stream) {
  const test::StreamFile file(stream);
  const AbortEvent abort;
  ByteWindow window(abort, 65536);
  EXPECT_TRUE(window.Open(file.Path()));
  AccessUnitReader reader(window);
  std::vector<Unit> units;
  AccessUnit unit;
  auto next = reader.Next(unit);
  for (; next && *next == Reading::Ready; next = reader.Next(unit)) {
    units.push_back({Bytes(unit.bytes.begin(), unit.bytes.end()), unit.offset, unit.key});
  }
  EXPECT_TRUE(next && *next == Reading::End) << next.Why();
  return units;
}

Bytes Joined(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& part : parts) test::Append(all, part);
  return all;
}

// Unlike Nal's, a slice whose first macroblock is not 0.
Bytes LaterSlice(std::size_t size) {
  Bytes slice = Nal(test::InterSlice, size);
  slice[1] = 0x48;
  return slice;
}

Bytes Key() { return AnnexB({test::Sps, test::Pps, Nal(test::IdrSlice, 50)}); }
Bytes Inter() { return AnnexB({Nal(test::InterSlice, 40)}); }

struct Stream {
  const char* name;
  std::vector<Bytes> units;
};

class CutTest : public testing::TestWithParam<Stream> {};

TEST_P(CutTest, UnitsComeOutAsTheyWereJoined) {
  const auto found = ReadAll(Joined(GetParam().units));
  ASSERT_EQ(found.size(), GetParam().units.size());
  std::uint64_t offset = 0;
  for (std::size_t i = 0; i < found.size(); ++i) {
    EXPECT_EQ(found[i].bytes, GetParam().units[i]) << i;
    EXPECT_EQ(found[i].offset, offset);
    const Bytes& unit = found[i].bytes;
    const Bytes idr = AnnexB({{test::IdrSlice}}, 3);
    EXPECT_EQ(found[i].key,
              std::search(unit.begin(), unit.end(), idr.begin(), idr.end()) != unit.end());
    offset += GetParam().units[i].size();
  }
}

INSTANTIATE_TEST_SUITE_P(
    Streams, CutTest,
    testing::Values(
        Stream{"ParameterSetsStartAUnit", {Key(), Inter(), Inter(), Key(), Inter()}},
        Stream{"ShortStartCodes",
               {AnnexB({test::Sps, test::Pps, Nal(test::IdrSlice, 9)}, 3),
                AnnexB({Nal(test::InterSlice, 9)}, 3), AnnexB({Nal(test::InterSlice, 9)}, 3)}},
        Stream{"DelimitersAndSeiStartAUnit",
               {Joined({AnnexB({{test::AccessUnitDelimiter, 0xF0}}), Key()}),
                Joined({AnnexB({{test::AccessUnitDelimiter, 0x30}}), Inter()}),
                Joined({AnnexB({Nal(test::Sei, 8)}), Inter()})}},
        Stream{"TypesOfLaterStandardsStartAUnitUpToEighteen",
               {Joined({AnnexB({{14, 0x80}}), Key()}),
                Joined({AnnexB({{18, 0x80}}), Inter(), AnnexB({{19, 0x80}})}), Inter()}},
        Stream{"SlicesOfOnePictureStayTogether",
               {Joined({Key(), AnnexB({LaterSlice(30), LaterSlice(20)})}),
                Joined({Inter(), AnnexB({LaterSlice(30)})})}},
        Stream{"LargerThanTheReadSize",
               {AnnexB({test::Sps, test::Pps, Nal(test::IdrSlice, 300000)}), Inter(),
                AnnexB({Nal(test::InterSlice, 70000)}), Inter()}}),
    [](const auto& stream) { return stream.param.name; });

TEST(AccessUnitsTest, ZeroBytesBetweenUnitsAndGarbageInFrontAreDropped) {
  const Bytes zeros(9, 0);
  const auto found = ReadAll(Joined({{0x12, 0x34, 0x00}, Key(), zeros, Inter(), zeros}));
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].bytes, Key());
  EXPECT_EQ(found[0].offset, 3U);
  EXPECT_EQ(found[1].bytes, Inter());
}

/// Wherever the file was cut, what comes out is a prefix of what came in, in whole units.
TEST(AccessUnitsTest, EveryTruncationIsSurvived) {
  const Bytes whole = Joined({Key(), Inter(), Key()});
  for (std::size_t size = 0; size < whole.size(); ++size) {
    Bytes out;
    for (const Unit& unit :
         ReadAll(Bytes(whole.begin(), whole.begin() + static_cast<long>(size)))) {
      test::Append(out, unit.bytes);
    }
    ASSERT_LE(out.size(), size);
    EXPECT_TRUE(std::equal(out.begin(), out.end(), whole.begin()));
  }
}

TEST(AccessUnitsTest, GarbageIsSurvived) {
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    Bytes stream(random() % 3000);
    for (unsigned char& byte : stream) {
      // Mostly zeros and ones, so that start codes are everywhere.
      byte = static_cast<unsigned char>(random() % 4 == 0 ? random() : random() % 2);
    }
    std::uint64_t end = 0;
    for (const Unit& unit : ReadAll(stream)) {
      EXPECT_GE(unit.offset, end);
      end = unit.offset + unit.bytes.size();
      ASSERT_LE(end, stream.size());
    }
  }
}

TEST(AccessUnitsTest, APictureWithoutEndIsToldWithItsPosition) {
  Bytes stream = Key();
  test::Append(stream, AnnexB({Nal(test::InterSlice, 2)}));
  stream.resize(stream.size() + 17U * 1024 * 1024, 0x77);
  const test::StreamFile file(stream);
  const AbortEvent abort;
  ByteWindow window(abort, 65536);
  ASSERT_TRUE(window.Open(file.Path()));
  AccessUnitReader reader(window);
  AccessUnit unit;
  EXPECT_TRUE(reader.Next(unit));
  const auto endless = reader.Next(unit);
  EXPECT_FALSE(endless);
  EXPECT_NE(endless.Why().find("byte " + std::to_string(Key().size()) + " "), std::string::npos)
      << endless.Why();
}

}  // namespace
}  // namespace nimbo::capture
