#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "base/reflect/Class.h"
#include "base/reflect/TClass.h"
#include "host/base/ClassRegistry.h"
#include "host/base/Framework.h"
#include "host/base/ObjectHooks.h"
#include "tests/support/ConsoleCapture.h"

namespace nimbo::base {
namespace {

class Animal : public object {
 public:
  ~Animal() override { --alive; }
  bool wild = false;
  static inline int alive = 0;
  Animal() { ++alive; }
};
class Dog : public Animal {};
class Tag {
 public:
  virtual ~Tag() = default;
};
class Bird : public Tag, public virtual Animal {};
class Robin : public Bird {};
class Stone : public object {};
class Bomb : public object {
 public:
  Bomb() { throw std::runtime_error("bang"); }
};
/// The class of stones that are made from a number.
class Quarry : public IClass {
 public:
  Quarry() : IClass("Quarry", {}) {
    _creator = [](void*) { return new Stone; };
    _signature = &typeid(void (*)(int));
  }
};

TProperty* WildProperty() {
  auto property = std::make_unique<TProperty>();
  property->IProperty::init("wild", typeid(bool), PropertyTypeSize<bool>, nullptr);
  property->init(&Animal::wild);
  return property.release();
}

/// The test's own global list and initialisation in place of the streaming layer's.
class ClassTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    TClass<>::Register<Stone>("Stone-thing-red", {});
    TClass<>::Register<Dog>("Dog-animal-red", {WildProperty()});
    TClass<>::Register<Robin>("Robin-animal-red-breast", {});
    TClass<>::Register<Bomb>("Bomb", {});
  }
  void SetUp() override {
    list = &_list;
    refuse = false;
    SetObjectHooks({[](object& instance, const char* type, const char*, const char* cfgs, object*) {
                      seen = instance.Name() + "/" + type + "/" + (cfgs ? cfgs : "(null)");
                      return !refuse;
                    },
                    []() -> ObjectListSafe& { return *list; }});
  }
  void TearDown() override { SetObjectHooks(_before); }

  static inline std::string seen;
  static inline bool refuse;
  static inline ObjectListSafe* list;

 private:
  ObjectListSafe _list;
  ObjectHooks _before = GetObjectHooks();
};

std::string NameOf(const IClass* cl) { return cl ? cl->Name() : "(none)"; }

TEST_F(ClassTest, EachNameIsRegisteredOnceWithAllThatIsToldOfIt) {
  const auto before = IClass::Globle().Classes();
  IClass* wolf = TClass<>::Register<Dog>("Wolf-grey", {WildProperty(), new TProperty});
  wolf->Init("module", 0x10002, "vendor", "author", "description");
  const ClassInfo info = Framework::Info(*wolf);
  EXPECT_EQ(info.objectSize, sizeof(Dog));
  EXPECT_EQ(*info.type, typeid(Dog));
  EXPECT_STREQ(info.module, "module");
  EXPECT_EQ(info.version, 0x10002u);
  EXPECT_STREQ(info.vendor, "vendor");
  EXPECT_STREQ(info.author, "author");
  EXPECT_STREQ(info.description, "description");
  Framework::Properties(*wolf)[1]->Name("other");
  std::string text;
  ostream_string out(text);
  *wolf >> out;
  wolf->print(out, Dog());
  EXPECT_EQ(text, "Wolf-grey: wild, otherwild=false\n");

  test::ConsoleCapture console;
  EXPECT_EQ(TClass<>::Register<Stone>("WOLF-grey", {}), wolf);
  EXPECT_EQ(TClass<>::Register<Stone>(nullptr, {}), nullptr);
  EXPECT_EQ(console.Text(),
            "\033[31mbase/reflect/TClass.h/74/Register:\tcl,class existed:WOLF-grey\n\033[0m"
            "\033[31mbase/reflect/TClass.h/72/Register:\t!name\n\033[0m");
  auto expected = before;
  expected.push_back(wolf);
  expected.push_back(TClass<>::Register<Stone>("grey", {}));  // its keyword is free
  EXPECT_EQ(IClass::Globle().Classes(), expected);
}

TEST_F(ClassTest, LookUpPrefersTheExactNameAndThenTheOrderOfRegistration) {
  // The second of these is registered under what are keywords of the first.
  TClass<>::Register<Stone>("Granite-pebble", {});
  TClass<>::Register<Stone>("pebble", {});
  EXPECT_EQ(NameOf(IClass::Find("Pebble", false)), "pebble");
  EXPECT_EQ(NameOf(IClass::Find("red", false)), "Stone-thing-red");
  EXPECT_EQ(NameOf(IClass::Find("RED-animal", false)), "Dog-animal-red");
  EXPECT_EQ(NameOf(IClass::Find("red-animal", true)), "(none)");
  EXPECT_EQ(NameOf(IClass::Find("red-blue", false)), "(none)");
  for (const char* nothing : {static_cast<const char*>(nullptr), "", "-"}) {
    EXPECT_EQ(NameOf(IClass::Find(nothing, false)), "(none)");
  }
}

TEST_F(ClassTest, LookUpCanAskForAKind) {
  ClassRegistry& registry = IClass::Globle();
  EXPECT_EQ(NameOf(registry.Find("red", false, &typeid(Animal))), "Dog-animal-red");
  EXPECT_EQ(NameOf(registry.Find("red", false, &typeid(Tag))), "Robin-animal-red-breast");
  EXPECT_EQ(NameOf(registry.Find("Stone-thing-red", true, &typeid(Animal))), "(none)");
  EXPECT_EQ(NameOf(registry.Find("Stone-thing-red", false, &typeid(Animal))), "(none)");
}

TEST_F(ClassTest, AModuleIsLoadedOnceWhereNothingElseIsFound) {
  static int loads;
  loads = 0;
  ClassRegistry registry;
  registry.Offer("Late-thing", typeid(Animal), [] { return ++loads > 0; });
  EXPECT_EQ(registry.Find("Late-thing", true), nullptr);
  EXPECT_EQ(registry.Find("early", false), nullptr);
  EXPECT_EQ(loads, 0) << "a registration asks for its own name exactly";
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(registry.Find("late", false), nullptr);
    EXPECT_EQ(loads, 1);
  }
}

TEST_F(ClassTest, NewNamesInitialisesAndListsTheObject) {
  AttrSet attrs("type=Dog,name=rex,wild=on");
  auto* dog = IClass::New<Dog>(attrs);
  ASSERT_NE(dog, nullptr);
  EXPECT_EQ(seen, "rex/Dog/(null)");
  IClass* const cl = Framework::Class(*dog);
  EXPECT_EQ(cl, IClass::Find("Dog-animal-red", true));
  EXPECT_TRUE(Framework::IsInstance(*cl, *dog));
  EXPECT_EQ(list->Find<Animal>("REX", true), dog);
  EXPECT_EQ(IClass::New<Animal>(attrs), dog) << "the name stands for the object that has it";
  Stone old;
  old.Name("old-stone");
  list->Add(old);
  EXPECT_EQ(cl->FindBeforeNew("rex"), dog);
  EXPECT_EQ(cl->FindBeforeNew("old"), nullptr) << "a keyword is no name";
  EXPECT_TRUE(dog->Configure(attrs));
  EXPECT_TRUE(dog->wild);
  test::ConsoleCapture console;
  AttrSet wrong("wild=maybe");
  EXPECT_FALSE(dog->Configure(wrong));
  EXPECT_EQ(console.Count("\"rex\" does not take the setting \"wild\""), 1u);
  dog->Release();
  EXPECT_EQ(list->Find<object>("rex", true), nullptr);
}

TEST_F(ClassTest, ANewObjectThatFailsIsDestroyed) {
  const int before = Animal::alive;
  AttrSet attrs("type=Dog,name=rex");
  EXPECT_EQ(IClass::New<Stone>(attrs), nullptr) << "made, but of another class";
  refuse = true;
  EXPECT_EQ(IClass::New<Dog>(attrs), nullptr);
  EXPECT_EQ(list->Find<object>("rex", true), nullptr);
  EXPECT_EQ(Animal::alive, before);
  test::ConsoleCapture console;
  AttrSet unknown("type=Unicorn"), none;
  EXPECT_EQ(IClass::New<Dog>(unknown), nullptr);
  EXPECT_EQ(IClass::New<Dog>(none), nullptr);
  EXPECT_EQ(console.Text(),
            "\033[31mbase/reflect/Class.h/225/New:\t!cl\n\033[0m"
            "\033[31mbase/reflect/Class.h/221/New:\t!type\n\033[0m");
}

TEST_F(ClassTest, AnObjectThatCannotBeMadeIsToldInOneLine) {
  test::ConsoleCapture console;
  EXPECT_EQ(ClassRegistry::Create(*IClass::Find("Bomb", true), "bomb", "b", nullptr, nullptr),
            nullptr);
  IClass* quarry = IClass::Register(new Quarry);
  EXPECT_EQ(ClassRegistry::Create(*quarry, "q", "q", nullptr, nullptr), nullptr);
  AttrSet attrs("type=Quarry");
  EXPECT_EQ(IClass::New<Stone>(attrs), nullptr);
  EXPECT_EQ(console.Text(),
            "\033[31mBomb: an exception escaped: bang\n\033[0m"
            "\033[31mQuarry: objects of this class cannot be made by name\n\033[0m");
}

}  // namespace
}  // namespace nimbo::base
