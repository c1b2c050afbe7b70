#include "host/base/ConfigText.h"

#include <gtest/gtest.h>

#include "host/base/Framework.h"
#include "tests/support/ConsoleCapture.h"

namespace nimbo::base {
namespace {

using Entries = std::vector<Attribute>;

TEST(ConfigTextTest, TheCaptureTemplateIsReadLevelByLevel) {
  const std::string video =
      "shm-source:connect={pv:h264-0,W=1920,gopTypeStr=ibbp,plenckeys=vfrc-fifo}"
      "+fifofilter:max=60+RingSink";
  const std::string text = "type=pipeline,serialize={" + video + "}+type=pipeline,serialize={a+b}";
  std::vector<ConfigEntry> entries;
  ASSERT_TRUE(ParseConfiguration(text, entries));
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].type, "pipeline");
  EXPECT_FALSE(entries[0].element);
  EXPECT_EQ(Framework::Entries(entries[0].settings), (Entries{{"serialize", video}}));
  EXPECT_EQ(entries[1].position, text.rfind("type="));
  EXPECT_EQ(entries[1].text, "type=pipeline,serialize={a+b}");

  ASSERT_TRUE(ParseConfiguration(entries[0].settings.Get("SERIALIZE"), entries));
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[1].type, "fifofilter");
  EXPECT_TRUE(entries[1].element);
  EXPECT_EQ(Framework::Entries(entries[1].settings), (Entries{{"max", "60"}}));
  EXPECT_EQ(entries[2].type, "RingSink");
  EXPECT_TRUE(Framework::Entries(entries[2].settings).empty());

  ConnectText connect;
  ASSERT_TRUE(ParseConnect(entries[0].settings.Get("connect"), connect));
  EXPECT_EQ(connect.name, "h264-0");
  EXPECT_EQ(Framework::Entries(connect.options),
            (Entries{{"W", "1920"}, {"gopTypeStr", "ibbp"}, {"plenckeys", "vfrc-fifo"}}));
}

TEST(ConfigTextTest, AnUnbracedUrlRunsToTheEndOfItsLevel) {
  const std::string url = "rtmp://h:1935/app/key?a=b,c=d+e:{f ";
  std::vector<ConfigEntry> entries;
  ASSERT_TRUE(ParseConfiguration("src+rtmp-client:link=all,url=" + url, entries));
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(Framework::Entries(entries[1].settings), (Entries{{"link", "all"}, {"url", url}}));
  ASSERT_TRUE(ParseConfiguration("rtmp-client:URL={rtmp://h/a+b},vcopy=false+RingSink", entries));
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(Framework::Entries(entries[0].settings),
            (Entries{{"URL", "rtmp://h/a+b"}, {"vcopy", "false"}}));
}

TEST(ConfigTextTest, EverySettingKeepsItsPlaceAndTheLastOfAKeyCounts) {
  const std::string text = "a + a:in = in,b={in},B=,type2={} + key=1,type= a ,url=a";
  std::vector<ConfigEntry> entries;
  ASSERT_TRUE(ParseConfiguration(text, entries));
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[1].typePosition, 4u);
  EXPECT_EQ(entries[2].typePosition, text.rfind("a ,"));
  const struct {
    std::size_t entry;
    const char* key;
    std::size_t position;
    std::size_t valuePosition;
  } places[] = {{1, "IN", text.find("in ="), text.find("in,")},
                {1, "b", text.find("B="), text.find(",type2")},
                {1, "type2", text.find("type2"), text.find("}", text.find("type2"))},
                {2, "url", text.find("url"), text.size() - 1}};
  for (const auto& place : places) {
    const ConfigSetting* setting = entries[place.entry].Find(place.key);
    ASSERT_NE(setting, nullptr) << place.key;
    EXPECT_EQ(setting->position, place.position) << place.key;
    EXPECT_EQ(setting->valuePosition, place.valuePosition) << place.key;
    EXPECT_EQ(setting->value, entries[place.entry].settings.Get(place.key));
  }
  EXPECT_EQ(entries[0].Find("in"), nullptr);
  EXPECT_EQ(entries[2].Find("type"), nullptr);
}

struct FaultCase {
  std::string text;
  std::string line;
};

TEST(ConfigTextTest, AFaultIsToldInOneRedLineThatQuotesThePieceAndItsPosition) {
  const std::string entryHint = ": CLASS, CLASS:KEY=VALUE,... or type=CLASS,... is expected";
  const std::string settingHint = ": KEY=VALUE is expected";
  const std::string longPiece(1000, 'x');
  const FaultCase cases[] = {
      {"fifofilter:max", "\"max\" at byte 11" + settingHint},
      {"a:x=1,,y=2", "\"\" at byte 6" + settingHint},
      {"a:x=1,=2", "\"=2\" at byte 6" + settingHint},
      {"a:x=1,b:y=2+c", "\"b:y=2\" at byte 6" + settingHint},
      {"a++b", "\"\" at byte 2" + entryHint},
      {":x=1", "\":x=1\" at byte 0" + entryHint},
      {"a,x=1", "\"a\" at byte 0" + entryHint},
      {"x=1,y=2+b", "\"x=1,y=2\" at byte 0: an entry without a class needs a type=CLASS"},
      {"a+b:type=c", "\"b:type=c\" at byte 2: the entry names its class twice"},
      {"a:x={{b}+c", "\"{{b}+c\" at byte 4: this brace is never closed"},
      {"a:x={b}c,y=1", "\"c\" at byte 7: nothing but a separator may follow a closing brace"},
      {"a:x=b{c}", "\"x=b{c}\" at byte 2: braces must enclose a value as a whole"},
      {std::string("a:x=\0", 5), "\"?\" at byte 4: the text holds a zero byte"},
      {"a:\033[2J\x7F", "\"?[2J?\" at byte 2" + settingHint},
      {"a:" + longPiece, "\"" + longPiece.substr(0, 32) + "...\" at byte 2" + settingHint}};
  for (const FaultCase& fault : cases) {
    std::vector<ConfigEntry> entries(1);
    test::ConsoleCapture console;
    EXPECT_FALSE(ParseConfiguration(fault.text, entries)) << fault.text;
    EXPECT_TRUE(entries.empty());
    EXPECT_EQ(console.Text(), "\033[31mconfiguration: " + fault.line + "\n\033[0m");
  }
}

TEST(ConfigTextTest, AConnectTextWithoutANameIsRefused) {
  for (const char* text : {"", "h264-0", "pv:", "pv:,W=1", "pv:W=1", "pv:a,", "pv:a,W"}) {
    ConnectText connect;
    test::ConsoleCapture console;
    EXPECT_FALSE(ParseConnect(text, connect)) << text;
    EXPECT_TRUE(connect.name.empty());
    EXPECT_EQ(console.Lines().size(), 1u);
  }
}

TEST(AttrSetTest, SettingReplacesInPlaceAndNullRemoves) {
  AttrSet attrs("a=1,b=2,A=3");
  EXPECT_EQ(Framework::Entries(attrs), (Entries{{"a", "3"}, {"b", "2"}}));
  attrs.Set("c", "x+y");
  attrs.Set("b", "3");
  attrs.Set("A", nullptr);
  attrs.Set("d", nullptr);
  EXPECT_EQ(attrs.ToString(false), "b=3,c={x+y}");
  EXPECT_EQ(attrs.ToString(true), "b=3\nc=x+y\n");
  EXPECT_EQ(attrs.Get("a"), nullptr);
  EXPECT_EQ(attrs.Get(nullptr), nullptr);
}

TEST(AttrSetTest, ValuesStandInBracesWhereTheTextFormNeedsThem) {
  const Attribute entries[] = {{"k", "a,b"}, {"k", "a=b"}, {"k", "a+b"},  {"k", "a:b"},
                               {"k", "{}"},  {"k", " a"},  {"k", "b\t"},  {"url", "x"},
                               {"URL", ""},  {"k", ""},    {"k", "a b-c"}};
  for (const auto& [key, value] : entries) {
    AttrSet attrs;
    attrs.Set(key.c_str(), value.c_str());
    const bool plain = key == "k" && (value.empty() || value == "a b-c");
    EXPECT_EQ(attrs.ToString(false), key + (plain ? "=" + value : "={" + value + "}"));
    EXPECT_EQ(Framework::Entries(AttrSet(attrs.ToString(false).c_str())), (Entries{{key, value}}));
  }
}

TEST(ConfigTextTest, DeepBracesDoNoHarm) {
  std::vector<ConfigEntry> entries;
  EXPECT_FALSE(ParseConfiguration("a:x=" + std::string(100000, '{'), entries));
  const std::string deep = std::string(50000, '{') + std::string(50000, '}');
  EXPECT_TRUE(ParseConfiguration("a:x=" + deep, entries));
}

}  // namespace
}  // namespace nimbo::base
