#include "nimbo/base/object.h"

#include <gtest/gtest.h>

#include <thread>

#include "base/reflect/Class.h"
#include "host/base/ObjectHooks.h"
#include "host/base/Pin.h"

namespace nimbo::base {
namespace {

ObjectListSafe& TestList() {
  static ObjectListSafe list;
  return list;
}

class ObjectTest : public testing::Test {
 protected:
  void SetUp() override { SetObjectHooks({nullptr, TestList}); }
  void TearDown() override { SetObjectHooks(_before); }

 private:
  ObjectHooks _before = GetObjectHooks();
};

class Apple : public object {
 public:
  explicit Apple(const char* name) { Name(name); }
  virtual int Weight() { return 100; }
};

class Pear : public object {
 public:
  Pear(const char* name, std::atomic<bool>& gone) : _gone(gone) { Name(name); }
  ~Pear() override { _gone = true; }

 private:
  std::atomic<bool>& _gone;
};

TEST_F(ObjectTest, AListIsSearchedByIdentifierOrByKeywords) {
  std::atomic<bool> gone{false};
  Pear pear("fruit-green", gone);
  Apple first("fruit-red-small"), second("fruit-red"), hidden("fruit-green");
  const std::vector<object*> added{&pear, &first, &second, &hidden};
  for (object* instance : added) TestList().Add(*instance);
  TestList().Add(first);  // it keeps its place, once
  EXPECT_EQ(Pin::All(TestList()).size(), added.size());
  EXPECT_EQ(TestList().Find<Apple>("Fruit-Red", true), &second);
  EXPECT_EQ(TestList().Find<Apple>("fruit-green", true), nullptr) << "the first one is no apple";
  EXPECT_EQ(TestList().Find<Apple>("fruit", true), nullptr);
  EXPECT_EQ(TestList().Find<Apple>("fruit", false), &first);
  EXPECT_EQ(TestList().Find<Apple>("red-fruit", false), &first);
  EXPECT_EQ(TestList().Find<Apple>("green", false), &hidden) << "the first apple";
  EXPECT_EQ(TestList().Find<Apple>("blue", false), nullptr);
  TestList().Remove(first);
  EXPECT_EQ(TestList().Find<Apple>("red", false), &second);
}

TEST_F(ObjectTest, ReleaseWaitsUntilNobodyPinsTheObject) {
  std::atomic<bool> gone{false};
  auto* pear = new Pear("pear", gone);
  TestList().Add(*pear);
  std::vector<Pin> pins = Pin::All(TestList());
  ASSERT_EQ(pins.size(), 1u);
  std::thread releasing([pear] { pear->Release(); });
  // It cannot be found any more, and still is what it was for whoever has found it before.
  while (TestList().Find<object>("pear", true)) std::this_thread::yield();
  EXPECT_FALSE(gone);
  EXPECT_NE(object::AsType<Pear>(&*pins[0]), nullptr);
  EXPECT_EQ(pins[0]->Name(), "pear");
  pins.clear();
  releasing.join();
  EXPECT_TRUE(gone);
}

TEST_F(ObjectTest, ReadersAndReleasesDoNotDisturbEachOther) {
  std::atomic<bool> done{false};
  std::atomic<int> seen{0};
  std::thread reading([&] {
    while (!done) {
      for (const Pin& pin : Pin::All(TestList())) seen += object::AsType<Apple>(&*pin)->Weight();
    }
  });
  for (int round = 0; round < 300 || seen == 0; ++round) {
    auto* apple = new Apple("apple");
    TestList().Add(*apple);
    std::this_thread::yield();
    apple->Release();
  }
  done = true;
  reading.join();
  EXPECT_EQ(seen % 100, 0);
}

}  // namespace
}  // namespace nimbo::base
