#include <gtest/gtest.h>

#include "base/reflect/TClass.h"
#include "host/base/Framework.h"

namespace nimbo::base {
namespace {

struct Wire;  // never defined: a property passes its address on and looks at nothing

class Sample : public object {
 public:
  bool SetText(const char* value) {
    text = value;
    return text != "refused";
  }
  bool SetWire(Wire* value) {
    wire = value;
    return true;
  }
  bool SetString(std::string value) { return SetText(value.c_str()); }
  bool SetOn(bool value) {
    on = value;
    return true;
  }
  bool IsOn() { return on; }
  int Count() const { return -3; }

  bool on = false;
  std::string text;
  Wire* wire = nullptr;
};

class Stranger : public object {};

TEST(PropertyTest, EachKindTellsItsTypeAndTheSizeThatItHasOnTheTarget) {
  TProperty text("addr", &Sample::SetText, "about"), string, wire, truth;
  string.init("s", &Sample::SetString, "about");
  wire.init("w", &Sample::SetWire, "about");
  truth.init("t", &Sample::SetOn, "about");
  const struct {
    const TProperty& property;
    const std::type_info& type;
    int size;
  } kinds[] = {{text, typeid(const char*), 4},
               {string, typeid(std::string), 4},
               {wire, typeid(Wire*), 4},
               {truth, typeid(bool), 1}};
  for (const auto& kind : kinds) {
    const PropertyInfo info = Framework::Info(kind.property);
    EXPECT_EQ(*info.type, kind.type);
    EXPECT_EQ(info.size, kind.size) << kind.type.name();
    EXPECT_STREQ(info.description, "about");
    EXPECT_TRUE(info.shown && info.persistent);
  }
  Sample sample;
  EXPECT_TRUE(string.setStr(sample, "x"));
  EXPECT_THROW(string.setStr(sample, nullptr), std::logic_error);
  EXPECT_EQ(sample.text, "x");
}

TEST(PropertyTest, TruthsAreReadFromTheirWordsAndPrintedOnALine) {
  TProperty field, setter, number;
  field.init(&Sample::on);
  setter.init("on", &Sample::SetOn, nullptr);
  number.initGet(&Sample::Count);
  number.initGetStr(&Sample::Count);
  Sample sample;
  std::string text;
  ostream_string out(text);
  for (const char* word : {"true", "False", "yes", "NO", "on", "off", "1", "0"}) {
    const bool before = sample.on;
    EXPECT_TRUE((before ? field : setter).setStr(sample, word)) << word;
    EXPECT_NE(sample.on, before) << word;
    for (const TProperty* property : {&field, &setter}) {
      EXPECT_FALSE(property->setStr(sample, "perhaps"));
      EXPECT_FALSE(property->setStr(sample, nullptr));
    }
    EXPECT_NE(sample.on, before) << "a text that says nothing changes nothing";
    field.print(out, sample);
  }
  number.print(out, sample);
  EXPECT_EQ(text, "true\nfalse\ntrue\nfalse\ntrue\nfalse\ntrue\nfalse\n-3\n");
  EXPECT_TRUE(field.getStr(sample, text = ""));
  EXPECT_TRUE(number.getStr(sample, text));
  EXPECT_EQ(text, "false-3");
}

TEST(PropertyTest, ATextSetterTakesTextTypedAndAsText) {
  TProperty property("addr", &Sample::SetText, nullptr);
  EXPECT_FALSE(property.get || property.getStr || property.print);
  Sample sample;
  EXPECT_TRUE(property.setStr(sample, "one"));
  EXPECT_EQ(sample.text, "one");
  const char* two = "two";
  EXPECT_TRUE(property.set(sample, &two));
  EXPECT_EQ(sample.text, "two");
  EXPECT_FALSE(property.setStr(sample, "refused"));
  sample.text = "kept";
  EXPECT_FALSE(property.setStr(sample, nullptr));
  EXPECT_EQ(sample.text, "kept");
}

TEST(PropertyTest, APointerIsReadAsAHexadecimalAddress) {
  TProperty property;
  property.init("ring", &Sample::SetWire, nullptr);
  Sample sample;
  EXPECT_TRUE(property.setStr(sample, "1a2b"));
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(sample.wire), 6699u);
  std::string printed;
  ConvertToImpl(sample.wire, printed);
  EXPECT_EQ(printed, "0x1a2b");
  sample.wire = nullptr;
  EXPECT_TRUE(property.setStr(sample, printed.c_str()));
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(sample.wire), 6699u);
  EXPECT_FALSE(property.setStr(sample, nullptr));
  EXPECT_TRUE(property.setStr(sample, "0"));
  EXPECT_EQ(sample.wire, nullptr);
}

TEST(PropertyTest, EverySlotRaisesBadCastForAnObjectOfAnotherClass) {
  TProperty setter("addr", &Sample::SetText, nullptr), field, getter;
  field.init(&Sample::on);
  getter.initGet(&Sample::IsOn);
  Stranger stranger;
  const char* text = "x";
  bool flag = false;
  std::string out;
  EXPECT_THROW(setter.set(stranger, &text), std::bad_cast);
  EXPECT_THROW(setter.setStr(stranger, text), std::bad_cast);
  EXPECT_THROW(field.set(stranger, &flag), std::bad_cast);
  EXPECT_THROW(field.getStr(stranger, out), std::bad_cast);
  EXPECT_THROW(getter.get(stranger, &flag), std::bad_cast);
  EXPECT_FALSE(setter.setStr(stranger, nullptr));  // refused before the object is looked at
}

}  // namespace
}  // namespace nimbo::base
