#include <gtest/gtest.h>

#include "base/reflect/TClass.h"

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
  bool IsOn() { return on; }

  bool on = false;
  std::string text;
  Wire* wire = nullptr;
};

class Stranger : public object {};

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
