#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

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
  bool SetTitle(std::string value) {
    title = std::move(value);
    return true;
  }
  bool SetWire(Wire* value) {
    wire = value;
    return true;
  }
  virtual bool SetOn(bool value) {
    on = value;
    return true;
  }
  virtual int Level() { return 41; }
  bool IsOn() { return on; }
  std::string Title() const { return title; }

  bool on = false;
  std::string text, title;
  Wire* wire = nullptr;
};

class Louder : public Sample {
 public:
  int Level() override { return -42; }
};

class Stranger : public object {};

std::string TextOf(const IProperty& property, object& instance) {
  std::string text;
  EXPECT_TRUE(property.getStr(instance, text));
  return text;
}

std::string PrintOf(const IProperty& property, object& instance) {
  std::string text;
  ostream_string out(text);
  property.print(out, instance);
  return text;
}

TEST(PropertyTest, ATextSetterTakesTextTypedAndAsText) {
  TProperty property("addr", &Sample::SetText, nullptr);
  EXPECT_EQ(property.ID(), Hash("addr"));
  EXPECT_TRUE(*property.Type() == typeid(const char*));
  EXPECT_EQ(property.TypeSize(), 4);
  EXPECT_TRUE(property.Shown() && property.Persistent());
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

TEST(PropertyTest, AStringSetterCopiesAndRaisesForANullText) {
  TProperty property;
  property.init("title", &Sample::SetTitle, nullptr);
  Sample sample;
  EXPECT_TRUE(property.setStr(sample, "a"));
  std::string typed = "b";
  EXPECT_TRUE(property.set(sample, &typed));
  EXPECT_EQ(sample.title, "b");
  EXPECT_EQ(typed, "b");
  EXPECT_THROW(property.setStr(sample, nullptr), std::logic_error);
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

TEST(PropertyTest, AFieldIsReadAndWrittenInEveryForm) {
  TProperty property;
  property.IProperty::init("on", typeid(bool), PropertyTypeSize<bool>, nullptr);
  property.init(&Sample::on);
  Sample sample;
  EXPECT_TRUE(property.setStr(sample, "Yes"));
  EXPECT_EQ(TextOf(property, sample), "true");
  bool typed = false;
  EXPECT_TRUE(property.get(sample, &typed));
  EXPECT_TRUE(typed);
  typed = false;
  EXPECT_TRUE(property.set(sample, &typed));
  EXPECT_EQ(PrintOf(property, sample), "false\n");
  for (const char* refused : {"", "2", "yess", static_cast<const char*>(nullptr)}) {
    sample.on = true;
    EXPECT_FALSE(property.setStr(sample, refused));
    EXPECT_TRUE(sample.on);
  }
}

TEST(PropertyTest, GettersDispatchThroughTheObjectsOwnTable) {
  TProperty level, title;
  level.initGet(&Sample::Level);
  level.initGetStr(&Sample::Level);
  title.initGet(&Sample::Title);
  title.initGetStr(&Sample::Title);
  Louder louder;
  louder.title = "a b";
  int value = 0;
  EXPECT_TRUE(level.get(louder, &value));
  EXPECT_EQ(value, -42);
  EXPECT_EQ(TextOf(level, louder), "-42");
  EXPECT_EQ(PrintOf(title, louder), "a b\n");
  EXPECT_EQ(TextOf(title, louder), "a b");
  EXPECT_FALSE(level.set || level.setStr);
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

TEST(PropertyTest, AClassPrintsWhatCanBeReadAndFreesItsProperties) {
  auto* setter = new TProperty("addr", &Sample::SetText, nullptr);
  auto* field = new TProperty;
  field->IProperty::init("on", typeid(bool), PropertyTypeSize<bool>, nullptr);
  field->init(&Sample::on);
  // Freed properties are what a leak checker looks for here.
  const auto cl =
      std::make_unique<IClass>("Sample-sample", std::initializer_list<IProperty*>{setter, field});
  Sample sample;
  std::string text;
  ostream_string out(text);
  *cl >> out;
  EXPECT_EQ(text, "Sample-sample: addr, on");
  text.clear();
  cl->print(out, sample);
  EXPECT_EQ(text, "on=false\n");
  EXPECT_EQ(cl->Property("ADDR"), setter);
  EXPECT_EQ(cl->Property("off"), nullptr);
}

}  // namespace
}  // namespace nimbo::base
