#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <poll.h>

#include <thread>

#include "host/base/Framework.h"
#include "host/stream/ControlQueue.h"
#include "tests/host/stream/Probes.h"
#include "tests/support/ConsoleCapture.h"

namespace nimbo::stream::test {
namespace {

using testing::ElementsAre;

class Messages : public testing::Test {
 protected:
  void SetUp() override {
    ControlQueue::Global().Run();
    HostState(*application).listeners->Add([this](const Message& message) {
      heard.push_back("app:" + message.name);
    });
  }

  ApplicationHolder application = NewApplication("app", "test-source+test-sink");
  TestSink& sink = ElementAt<TestSink>("app/TestSink");
  std::vector<std::string> heard;
};

TEST_F(Messages, AreQueuedInOrderWhileTheSenderHoldsALock) {
  std::mutex lock;
  HostState(*application).listeners->Add([&](const Message&) {
    const std::lock_guard<std::mutex> held(lock);  // would never return inside the sending call
  });
  std::thread sender([&] {
    const std::lock_guard<std::mutex> held(lock);
    for (const char* name : {"first", "second", "third"}) sink.SendMessageUp(name, "", nullptr);
  });
  sender.join();
  EXPECT_TRUE(heard.empty());
  pollfd waiting{ControlQueue::Global().Descriptor(), POLLIN, 0};
  EXPECT_EQ(poll(&waiting, 1, 0), 1);
  EXPECT_EQ(ControlQueue::Global().Run(), 3);
  EXPECT_EQ(poll(&waiting, 1, 0), 0);
  EXPECT_THAT(heard, ElementsAre("app:first", "app:second", "app:third"));
}

TEST_F(Messages, GoUpLevelByLevelWithTheirContents) {
  Message last;
  HostState(*Framework::Pipeline(sink)).listeners->Add([this](const Message& message) {
    heard.push_back("pipeline:" + message.name);
  });
  const int all = MessageListeners::Global().Add([&](const Message& message) {
    heard.push_back("all:" + message.name);
    last = message;
  });
  base::AttrSet attrs("w=1920");
  EXPECT_TRUE(sink.SendMessageUp("event", "text", &attrs));
  EXPECT_FALSE(sink.SendMessageUp(nullptr, "text", nullptr));
  ControlQueue::Global().Run();
  MessageListeners::Global().Remove(all);
  EXPECT_THAT(heard, ElementsAre("pipeline:event", "app:event", "all:event"));
  EXPECT_EQ(last.path, "app/TestSink");
  EXPECT_EQ(last.element, "TestSink");
  EXPECT_EQ(last.text, "text");
  EXPECT_STREQ(last.attrs.Get("w"), "1920");
}

TEST_F(Messages, ArriveWhenTheirSenderIsGone) {
  sink.SendMessageUp("farewell", nullptr, nullptr);
  application.reset();
  ControlQueue::Global().Run();
  EXPECT_THAT(heard, ElementsAre("app:farewell"));
}

TEST_F(Messages, ListenerThatThrowsDoesNotKeepThemFromOthers) {
  nimbo::test::ConsoleCapture console;
  HostState(*application).listeners->Add([](const Message&) { throw 1; });
  HostState(*application).listeners->Add([this](const Message&) { heard.push_back("last"); });
  sink.SendMessageUp("event", nullptr, nullptr);
  ControlQueue::Global().Run();
  EXPECT_THAT(heard, ElementsAre("app:event", "last"));
  EXPECT_EQ(console.Lines().size(), 1u);
}

TEST(ControlQueueRun, LeavesWhatItsWorkPostsForTheNextTime) {
  auto& queue = ControlQueue::Global();
  queue.Run();
  int runs = 0;
  queue.Post([&] {
    ++runs;
    queue.Post([&] { ++runs; });
  });
  EXPECT_EQ(queue.Run(), 1);
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(queue.Run(), 1);
  EXPECT_EQ(runs, 2);
}

TEST(ControlQueueRun, KeepsTheOrderWhenWorkRunsTheQueueItself) {
  std::vector<int> order;
  auto& queue = ControlQueue::Global();
  queue.Run();
  queue.Post([&] {
    order.push_back(1);
    queue.Post([&] { order.push_back(3); });
    queue.Run();
  });
  queue.Post([&] { order.push_back(2); });
  queue.Run();
  EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

}  // namespace
}  // namespace nimbo::stream::test
