#include "nimbo/base/thread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <string>

#include "tests/support/ConsoleCapture.h"

namespace nimbo::base {
namespace {

TEST(ThreadTest, TheBodyRunsUnderItsNameWithTheStackItNeeds) {
  constexpr int Wish = 3 * 1024 * 1024;
  std::string name;
  std::size_t stack = 0;
  const auto look = [&] {
    char text[32] = {};
    pthread_getname_np(pthread_self(), text, sizeof text);
    name = text;
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &stack);
    pthread_attr_destroy(&attributes);
  };
  Thread large("a-name-longer-than-linux-keeps", 19, 10, Wish);
  ASSERT_TRUE(large.Once(look));
  large.Join();
  EXPECT_EQ(name, "a-name-longer-t");
  EXPECT_GE(stack, static_cast<std::size_t>(Wish));
  Thread small("small", 19, 10, 1);
  ASSERT_TRUE(small.Once(look));
  small.Join();
  EXPECT_GE(stack, 256u * 1024);
}

TEST(ThreadTest, ARunningThreadRefusesASecondBodyAndRunsAgainAfterwards) {
  std::promise<void> started, finish;
  std::atomic<int> runs{0};
  Thread thread("again", 0, 0, 0);
  EXPECT_TRUE(thread.Join()) << "none runs";
  EXPECT_FALSE(thread.Once(nullptr));
  ASSERT_TRUE(thread.Once([&] {
    started.set_value();
    finish.get_future().wait();
    ++runs;
  }));
  started.get_future().wait();
  EXPECT_FALSE(thread.Once([&] { runs += 100; }));
  finish.set_value();
  EXPECT_TRUE(thread.Join());
  EXPECT_EQ(runs, 1);
  for (int round = 0; round < 20; ++round) {
    // Without a Join in between as well, once the body has returned.
    while (!thread.Once([&] { ++runs; })) std::this_thread::yield();
  }
  thread.Join();
  EXPECT_EQ(runs, 21);
}

TEST(ThreadTest, TheDestructorJoinsAndWhatTheBodyHeldIsGoneWithTheRun) {
  const auto held = std::make_shared<int>(5);
  std::atomic<bool> ended{false};
  Thread other("other", 0, 0, 0);
  {
    Thread thread("joined", 0, 0, 0);
    ASSERT_TRUE(thread.Once([&ended, held] { ended = *held == 5; }));
    ASSERT_TRUE(other.Once([held] {}));
  }
  EXPECT_TRUE(ended);
  other.Join();
  EXPECT_EQ(held.use_count(), 1);
}

TEST(ThreadTest, AnEscapedExceptionEndsTheRunWithOneLine) {
  test::ConsoleCapture console;
  Thread thread("thrower", 0, 0, 0);
  ASSERT_TRUE(thread.Once([] { throw std::runtime_error("bang"); }));
  thread.Join();
  EXPECT_EQ(console.Text(), "\033[31mthread thrower: an exception escaped: bang\n\033[0m");
  EXPECT_TRUE(thread.Once([] {}));
}

}  // namespace
}  // namespace nimbo::base
