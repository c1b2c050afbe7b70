#include "nimbo/base/names.h"

#include <gtest/gtest.h>

#include <vector>

#include "host/base/Nearest.h"
#include "nimbo/base/property.h"

namespace nimbo::base {
namespace {

TEST(HashTest, TextsHaveTheirPublishedValuesAndOnlyAsciiCapitalsAreFolded) {
  EXPECT_EQ(Hash(nullptr), 0u);
  EXPECT_EQ(Hash(""), 0x811C9DC5u);
  EXPECT_EQ(Hash("a"), 0xE40C292Cu);
  EXPECT_EQ(Hash("rtmp-client"), 0x1C2FF402u);
  EXPECT_EQ(Hash("RTMP-Client"), Hash("rtmp-client"));
  EXPECT_EQ(Hash("\xC4"), 0x410B2893u);  // the Latin-1 capital and small letter
  EXPECT_EQ(Hash("\xE4"), 0x610B5AF3u);
  EXPECT_NE(Hash("@"), Hash("`"));  // the neighbours of the letters' range
  EXPECT_NE(Hash("["), Hash("{"));
}

std::vector<std::uint32_t> Values(const Arr32& list) { return {list.begin(), list.end()}; }

TEST(NameRecordTest, ANewNameTakesThePlaceOfTheOldOneWithAllThatBelongsToIt) {
  IProperty record;
  EXPECT_EQ(record.ID(), Hash(""));
  for (const char* name : {"One-two-three", "Three--four", static_cast<const char*>(nullptr)}) {
    EXPECT_TRUE(record.Name(name));
  }
  EXPECT_EQ(record.Name(), "Three--four");
  EXPECT_EQ(record.ID(), Hash("three--four"));
  EXPECT_EQ(record.Order(), record.ID());
  EXPECT_EQ(Values(record.Keywords()), (std::vector{Hash("three"), Hash("four")}));
}

TEST(Arr32Test, CopiesAreIndependentBeyondTheInlineCapacity) {
  Arr32 list;
  std::vector<std::uint32_t> expected;
  for (std::uint32_t value = 0; value < 5 * Arr32::InlineCapacity; ++value) {
    list.Add(value);
    expected.push_back(value);
  }
  Arr32 copy(list);
  Arr32 assigned;
  assigned.Add(99);
  assigned = list;
  const Arr32& same = assigned;
  assigned = same;
  list.Clear();
  list.Add(7);
  EXPECT_EQ(Values(copy), expected);
  EXPECT_EQ(Values(assigned), expected);
  EXPECT_TRUE(copy.ContainsAll(list));
  EXPECT_FALSE(list.ContainsAll(copy));
  EXPECT_TRUE(list.ContainsAll(Arr32()));
}

TEST(NearestTest, IsTheChoiceWithTheFewestChangesUnlessThoseAreMany) {
  const std::vector<std::string> choices{"shm-source", "ring-sink", "fr", "br"};
  const std::pair<const char*, const char*> cases[] = {{"shm-sorce", "shm-source"},
                                                       {"SHM-souRcee", "shm-source"},
                                                       {"ringsink", "ring-sink"},
                                                       {"rf", "fr"},
                                                       {"rr", "fr"},  // the first of equal ones
                                                       {"ring-sabc", "ring-sink"},
                                                       {"ring-sabc4", ""},
                                                       {"bitrate", ""},
                                                       {"", ""}};
  for (const auto& [name, nearest] : cases) EXPECT_EQ(Nearest(name, choices), nearest) << name;
  EXPECT_EQ(Suggest("rinksing", choices), "; did you mean \"ring-sink\"?");
  EXPECT_EQ(Suggest("bitrate", {"W", "H"}), "; there are: W, H");
}

}  // namespace
}  // namespace nimbo::base
