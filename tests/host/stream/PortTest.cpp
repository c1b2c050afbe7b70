#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "tests/host/stream/Probes.h"
#include "tests/support/ConsoleCapture.h"
#include "tests/support/MediaSamples.h"
#include "tests/support/StoppedClock.h"

namespace nimbo::stream::test {
namespace {

struct LinkCase {
  const char* outputCaps;
  const char* inputCaps;
  bool linked;
};

TEST(PortLink, NeedsCapsThatFit) {
  for (const LinkCase& test : {LinkCase{"h264", "H264", true}, LinkCase{"h264", "aac", false},
                               LinkCase{"aac", "", true}, LinkCase{"", "aac", true}}) {
    Port output(nullptr, test.outputCaps, true);
    Port input(nullptr, test.inputCaps, false);
    nimbo::test::ConsoleCapture console;
    EXPECT_EQ(input.Link(output), test.linked) << test.outputCaps << " to " << test.inputCaps;
    EXPECT_EQ(console.Lines().size(), test.linked ? 0u : 1u);
    EXPECT_EQ(output.Linked(), test.linked);
    EXPECT_EQ(input.Linked(), test.linked);
  }
}

TEST(PortLink, IsRefusedForLinkedPortsAndEqualDirections) {
  Port output(nullptr, "", true);
  Port other(nullptr, "", true);
  {
    Port input(nullptr, "", false);
    EXPECT_FALSE(output.Link(other));
    EXPECT_TRUE(output.Link(input));
    EXPECT_FALSE(other.Link(input));
  }
  EXPECT_FALSE(output.Linked()) << "the other end is gone";
  RingBuffer ring(1);
  output.SetRing(&ring);
  TestSink sink;
  EXPECT_FALSE(output.Link(*sink.PortAdd("", "in"))) << "a ring is read by bridges alone";
  Port pipelines(nullptr, "", false);
  EXPECT_TRUE(output.Link(pipelines));
}

class PortDelivery : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(source.Link(sink)); }
  bool Deliver() { return source.Output().Deliver(*NewPacket()); }

  TestSource source;
  TestSink sink;
};

TEST(BackoffTest, DoublesFromASecondUpToItsLimitWithinAFifthUntilAnAttemptSucceeds) {
  using std::chrono::duration;
  for (const unsigned int seed : {1U, 2U, 3U, 4U, 5U}) {
    Backoff backoff(seed), other(seed + 5);
    double apart = 0;
    for (const double expected : {1., 2., 4., 8., 15., 15.}) {
      const double seconds = duration<double>(backoff.Next()).count();
      EXPECT_NEAR(seconds, expected, expected / 5);
      apart += std::abs(seconds - duration<double>(other.Next()).count());
    }
    EXPECT_GT(apart, 0.1) << "those who lose a server together do not come back together";
    backoff.Reset();
    EXPECT_NEAR(duration<double>(backoff.Next()).count(), 1, 0.2);
    backoff.SetLongest(std::chrono::milliseconds(1500));
    EXPECT_NEAR(duration<double>(backoff.Next()).count(), 1.5, 0.3);
  }
}

TEST_F(PortDelivery, PausesAfterARefusedPacketLongerEachTimeUntilOneIsTaken) {
  using namespace std::chrono_literals;
  nimbo::test::StoppedClock clock;
  bool taken = false;
  // Whether a packet waits while less than `least` has passed, and goes on when `most` has.
  const auto waits = [&](Clock::duration least, Clock::duration most) {
    clock.Advance(least - 1ms);
    auto delivered = std::async(std::launch::async, [this] { return Deliver(); });
    const bool early = delivered.wait_for(20ms) == std::future_status::ready;
    clock.Advance(most - least + 1ms);
    EXPECT_EQ(delivered.get(), taken);
    return !early;
  };
  sink.SetFail("ReceivePacket");
  EXPECT_FALSE(Deliver());
  EXPECT_TRUE(waits(800ms, 1200ms));
  EXPECT_TRUE(waits(1600ms, 2400ms));
  sink.SetFail("");
  taken = true;
  EXPECT_TRUE(waits(3200ms, 4800ms));
  EXPECT_TRUE(Deliver()) << "no pause after a packet that was taken";
  sink.SetFail("ReceivePacket");
  taken = false;
  EXPECT_FALSE(Deliver());
  EXPECT_TRUE(waits(800ms, 1200ms)) << "the first one again";
  EXPECT_EQ(sink.packets, 7);
}

TEST_F(PortDelivery, CountsWhatWasTakenAndRefusedAndTheGapsInTheNumbers) {
  for (const std::uint32_t sequence : {7U, 8U, 11U, 12U, 14U}) {
    sink.SetFail(sequence == 12 ? "ReceivePacket" : "");
    const auto packet =
        nimbo::test::NewPacket({nimbo::test::Bytes(sequence), false, 0, sequence, nullptr});
    EXPECT_EQ(source.Output().Deliver(*packet), sequence != 12);
    HostState(sink).pauseUntil = 0;
  }
  const PortFigures& figures = source.Output().Peer()->Figures();
  EXPECT_EQ(figures.packets, 4U);
  EXPECT_EQ(figures.bytes, 7U + 8 + 11 + 14);
  EXPECT_EQ(figures.refused, 1U);
  EXPECT_EQ(figures.gaps, 2U);
}

TEST_F(PortDelivery, ExceptionIsOneLineAndARefusedPacket) {
  sink.Name("victim");
  sink.SetThrow("ReceivePacket");
  nimbo::test::ConsoleCapture console;
  EXPECT_FALSE(Deliver());
  EXPECT_EQ(console.Lines().size(), 1u);
  EXPECT_EQ(console.Count("ReceivePacket of victim"), 1u);
  EXPECT_GT(HostState(sink).pauseUntil, 0);
}

TEST_F(PortDelivery, StopEndsThePauseAndStartAllowsItAgain) {
  source.StatusSet("play");
  sink.SetFail("ReceivePacket");
  EXPECT_FALSE(Deliver());
  HostState(sink).pauseUntil =
      std::chrono::nanoseconds(std::chrono::hours(1)).count() + HostState(sink).pauseUntil;
  auto waiting = std::async(std::launch::async, [this] { return Deliver(); });
  EXPECT_TRUE(source.StatusSet("ready"));
  EXPECT_FALSE(waiting.get());
  EXPECT_FALSE(Deliver()) << "further pauses end at once";
  EXPECT_EQ(sink.packets, 1);
  sink.SetFail("");
  HostState(sink).pauseUntil = 0;
  EXPECT_TRUE(source.StatusSet("play"));
  EXPECT_TRUE(Deliver());
}

TEST_F(PortDelivery, UnlinkEndsThePauseOfThatLinkAlone) {
  constexpr std::chrono::milliseconds Glance{50};
  for (int round = 0; round < 2; ++round) {
    HostState(sink).pauseUntil = std::chrono::nanoseconds::max().count();
    auto waiting = std::async(std::launch::async, [this] { return Deliver(); });
    EXPECT_EQ(waiting.wait_for(Glance), std::future_status::timeout) << "it pauses";
    (round == 0 ? source.Output() : *source.Output().Peer()).Unlink();
    EXPECT_FALSE(waiting.get());
    ASSERT_TRUE(source.Link(sink));
  }
  EXPECT_EQ(sink.packets, 0);
}

/// Stays in ReceivePacket until it is stopped, and for a moment more.
class LingeringSink : public ISink {
 public:
  explicit LingeringSink(std::atomic<bool>& busyToTheEnd) : _busy_to_the_end(busyToTheEnd) {}
  ~LingeringSink() override { _busy_to_the_end = busy.load(); }
  bool Stop() override {
    _stopped = true;
    return ISink::Stop();
  }
  bool ReceivePacket(Packet&, void*) override {
    busy = true;
    while (!_stopped) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    busy = false;
    return true;
  }
  std::atomic<bool> busy{false};

 private:
  std::atomic<bool> _stopped{false};
  std::atomic<bool>& _busy_to_the_end;
};

TEST(PipelineRelease, WaitsForWhoeverDeliversToItFromOutside) {
  base::AttrSet attrs = Object::AttrSetInit({{"type", "Pipeline"}, {"name", "taker"}});
  auto* pipeline = base::IClass::New<Pipeline>(attrs);
  ASSERT_TRUE(pipeline);
  std::atomic<bool> busyToTheEnd{false};
  auto* sink = new LingeringSink(busyToTheEnd);
  IElement* bridge = IElement::New("BridgeSource", "h264", pipeline, "h264");
  HostState(*pipeline).Attach(*sink);
  TestSource source;
  ASSERT_TRUE(bridge && bridge->Link(*sink) && pipeline->LinkFrom(&source.Output()));
  ASSERT_TRUE(pipeline->StatusSet("play"));
  std::thread delivering([&source] {
    while (source.Output().Deliver(*NewPacket())) {
    }
  });
  while (!sink->busy) std::this_thread::yield();
  pipeline->Release();
  EXPECT_FALSE(busyToTheEnd);
  EXPECT_FALSE(source.Output().Linked());
  delivering.join();
}

/// Takes its time in Open and Close, and notes whether it was given a packet meanwhile.
class SteppedSink : public ISink {
 public:
  bool Open() override { return Step() && ISink::Open(); }
  bool Close() override { return Step() && ISink::Close(); }
  bool ReceivePacket(Packet&, void*) override {
    ++packets;
    if (_stepping) disturbed = true;
    const std::unique_lock lock(_own, std::try_to_lock);
    if (!lock) disturbed = true;
    return true;
  }
  bool Step() {
    const std::lock_guard lock(_own);
    _stepping = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    _stepping = false;
    return !fails;
  }
  std::atomic<int> packets{0};
  std::atomic<bool> disturbed{false};
  bool fails = false;

 private:
  std::mutex _own;
  std::atomic<bool> _stepping{false};
};

TEST(ElementStep, OneThatIsSteppedAloneIsGivenNothingBetweenCloseAndOpen) {
  TestSource source;
  SteppedSink sink;
  ASSERT_TRUE(source.Link(sink) && source.StatusSet("play"));
  std::atomic<bool> ended{false};
  std::atomic<int> refused{0};
  std::thread delivering([&] {
    while (!ended) refused += source.Output().Deliver(*NewPacket()) ? 0 : 1;
  });
  const auto goesOn = [](std::atomic<int>& count) {
    for (const int before = count; count == before;) std::this_thread::yield();
  };
  goesOn(sink.packets);
  for (int round = 0; round < 3; ++round) {
    ASSERT_TRUE(sink.StatusSet("play"));
    HostState(sink).pauseUntil = std::chrono::nanoseconds::max().count();
    ASSERT_TRUE(sink.StatusSet("null"));
    goesOn(refused);  // where one leaves, its source does not wait for it
    sink.fails = true;
    EXPECT_FALSE(sink.StatusSet("ready"));
    goesOn(refused);
    sink.fails = false;
    ASSERT_TRUE(sink.StatusSet("ready"));
    goesOn(sink.packets);  // without the pause from before
  }
  EXPECT_FALSE(sink.disturbed);
  ended = true;
  delivering.join();
}

TEST(ElementPorts, AreAddedOnDemandAndCheckedForTheirDirection) {
  TestSink sink;
  EXPECT_FALSE(sink.PortAdd("h264", "sideways"));
  EXPECT_FALSE(sink.CreatePort("h264", "out"));
  IPort* first = sink.CreatePortIn("aac", 0);
  ASSERT_TRUE(first);
  EXPECT_EQ(sink.CreatePortIn("aac", 0), first);
  EXPECT_FALSE(sink.CreatePortIn("aac", 2));
  TestSource source;
  EXPECT_TRUE(sink.LinkFrom(&source)) << "the input for other caps is passed over";
  EXPECT_FALSE(first->Linked());
  EXPECT_EQ(HostState(sink).inputs.size(), 2u);
  EXPECT_EQ(sink.SelectPortIn(nimbo::test::VideoMedia().get()), source.Output().Peer());
  EXPECT_EQ(sink.SelectPortIn(nullptr), nullptr);
}

}  // namespace
}  // namespace nimbo::stream::test
