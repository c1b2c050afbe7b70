#include "host/stream/Media.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/MediaSamples.h"

namespace nimbo::stream {
namespace {

TEST(MediaTest, ParameterSetsAreReadAsPointersWithLengths) {
  const auto media = test::VideoMedia();
  unsigned char* sps = nullptr;
  unsigned int size = 0;
  ASSERT_TRUE(media->Get("SPS", sps));
  ASSERT_TRUE(media->GetIntT("isps", size));
  EXPECT_EQ(test::Bytes(sps, sps + size), test::Sps);
  int width = 0;
  EXPECT_TRUE(media->GetIntT("w", width));
  EXPECT_EQ(width, 1280);
}

TEST(MediaTest, MissingAndMismatchedParametersLeaveTheValueAlone) {
  const auto media = test::AudioMedia();
  int value = -7;
  unsigned char* bytes = nullptr;
  EXPECT_FALSE(media->GetIntT("sps", value));
  EXPECT_FALSE(media->Get("rate", bytes));
  EXPECT_FALSE(test::VideoMedia()->GetIntT("sps", value));
  EXPECT_FALSE(media->SetStr("rate", "8000")) << "a description never changes";
  EXPECT_EQ(value, -7);
  EXPECT_EQ(bytes, nullptr);
}

struct StoredType {
  const char* name;
  const std::type_info* type;
  bool readable;
};

class StoredTypeTest : public testing::TestWithParam<StoredType> {};

TEST_P(StoredTypeTest, OnlyIntegersAreReadAsIntegersAndCutToTheirLowBits) {
  const test::Held<Media> media(new Media("test"));
  media->SetTyped("value", GetParam().type, 0x100000001LL);
  int value = 0;
  EXPECT_EQ(media->GetIntT("value", value), GetParam().readable);
  EXPECT_EQ(value, GetParam().readable ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Types, StoredTypeTest,
                         testing::Values(StoredType{"ULongLong", &typeid(unsigned long long), true},
                                         StoredType{"UChar", &typeid(unsigned char), true},
                                         StoredType{"Char", &typeid(char), true},
                                         StoredType{"Long", &typeid(long), true},
                                         StoredType{"SignedChar", &typeid(signed char), false},
                                         StoredType{"Bool", &typeid(bool), false},
                                         StoredType{"Double", &typeid(double), false},
                                         StoredType{"Nothing", nullptr, false}),
                         [](const auto& type) { return type.param.name; });

TEST(MediaTest, ParametersAreShownAsText) {
  std::string text;
  EXPECT_TRUE(test::AudioMedia()->GetStr("rate", text));
  EXPECT_EQ(text, "44100");
  EXPECT_TRUE(test::VideoMedia()->GetStr("pps", text));
  EXPECT_EQ(text, "68ce3c80");
}

}  // namespace
}  // namespace nimbo::stream
