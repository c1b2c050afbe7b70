#include "host/stream/RingBuffer.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/support/MediaSamples.h"

namespace nimbo::stream {
namespace {

using test::NewPacket;
using namespace std::chrono_literals;
using Reader = IRing<Packet*>::Reader;

constexpr int Capacity = 4;
/// Long enough for any machine: only a fault lets a test wait for it.
constexpr std::chrono::nanoseconds Patience = 1min;

void Write(RingBuffer& ring, std::uint32_t sequence, int count = 1) {
  for (int i = 0; i < count; ++i) {
    ring.Write(*NewPacket({{1}, false, 0, sequence + static_cast<std::uint32_t>(i)}));
  }
}

/// The sequence number of the next packet; 0 when there is none.
std::uint32_t Pop(Reader& reader, std::chrono::nanoseconds timeout = Patience) {
  Packet* packet = nullptr;
  return reader.Pop(packet, timeout) ? packet->Sequence() : 0;
}

/// A packet that tells when it is destroyed.
class WatchedPacket final : public Packet {
 public:
  explicit WatchedPacket(bool& gone) : _gone(gone) {}

 private:
  ~WatchedPacket() override { _gone = true; }
  bool& _gone;
};

TEST(RingBufferTest, ANewReaderStartsAtTheNextPacketWritten) {
  RingBuffer ring(Capacity);
  Write(ring, 1, 2);
  const std::unique_ptr<Reader> reader(ring.CreateReader(nullptr));
  EXPECT_EQ(Pop(*reader, 1ns), 0U);
  Write(ring, 3, 2);
  EXPECT_EQ(Pop(*reader), 3U);
  EXPECT_EQ(Pop(*reader), 4U);
  EXPECT_EQ(ring.WritePosition(), 4U);
  EXPECT_EQ(ring.Size(), Capacity);
}

TEST(RingBufferTest, PositionsWrapAndKeepTheirOrder) {
  RingBuffer ring(3, 0xFFFFFFFEU);
  const std::unique_ptr<Reader> near(ring.CreateReader(nullptr));
  const std::unique_ptr<Reader> lapped(ring.CreateReader(nullptr));
  Write(ring, 1, 3);
  EXPECT_EQ(Pop(*near), 1U);
  EXPECT_EQ(Pop(*near), 2U);
  EXPECT_EQ(near->position, 0U);
  EXPECT_EQ(Pop(*near), 3U);
  EXPECT_EQ(ring.WritePosition(), 1U);
  EXPECT_EQ(ring.Unread(), 3U);
  Write(ring, 4, 2);
  for (std::uint32_t expected = 3; expected <= 5; ++expected) EXPECT_EQ(Pop(*lapped), expected);
}

TEST(RingBufferTest, APinnedPacketSurvivesBeingOverwrittenUntilTheNextWait) {
  RingBuffer ring(1);
  const std::unique_ptr<Reader> reader(ring.CreateReader(nullptr));
  const std::unique_ptr<Reader> other(ring.CreateReader(nullptr));
  bool gone = false;
  ring.Write(*Held<Packet>(new WatchedPacket(gone)));
  Packet* packet = nullptr;
  ASSERT_TRUE(reader->Pop(packet, Patience));
  ASSERT_TRUE(other->Pop(packet, Patience));
  Write(ring, 7, 3);
  EXPECT_FALSE(gone);
  Packet** entry = ring.Get(0);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(*entry, packet);
  EXPECT_EQ(Pop(*reader), 9U);
  EXPECT_FALSE(gone) << "the other reader still holds it";
  EXPECT_EQ(Pop(*other), 9U);
  EXPECT_TRUE(gone);
  EXPECT_EQ(ring.Get(0), nullptr);
}

TEST(RingBufferTest, AnAbortWithoutAWaiterEndsTheNextWaitOnly) {
  RingBuffer ring(Capacity);
  const std::unique_ptr<Reader> reader(ring.CreateReader(nullptr));
  const std::unique_ptr<Reader> other(ring.CreateReader(nullptr));
  reader->WaitAbort();
  Write(ring, 1);
  EXPECT_EQ(Pop(*reader), 0U);
  EXPECT_EQ(Pop(*reader), 1U);
  EXPECT_EQ(Pop(*other), 1U) << "an abort is for one reader";
}

TEST(RingBufferTest, AnAbortEndsAWaitWithoutLimitAndAsksTheWakeTest) {
  RingBuffer ring(Capacity);
  const std::unique_ptr<Reader> reader(ring.CreateReader(nullptr));
  int asked = 0;
  reader->wakeTest = [&asked] { return ++asked == 0; };
  std::thread aborter([&reader] { reader->WaitAbort(); });
  EXPECT_EQ(Pop(*reader, 0ns), 0U);
  aborter.join();
  EXPECT_EQ(asked, 1);
}

TEST(RingBufferTest, ATimeoutBeyondTheClockIsNone) {
  RingBuffer ring(Capacity);
  const std::unique_ptr<Reader> reader(ring.CreateReader(nullptr));
  std::thread writer([&ring] { Write(ring, 5); });
  EXPECT_EQ(Pop(*reader, std::chrono::nanoseconds::max()), 5U);
  writer.join();
  EXPECT_EQ(Pop(*reader, 1ms), 0U);
}

TEST(RingBufferTest, DestroyingTheRingEndsWaitsAndDetachesReaders) {
  auto ring = std::make_unique<RingBuffer>(Capacity);
  const std::unique_ptr<Reader> reader(ring->CreateReader(nullptr));
  std::atomic<bool> popped{false};
  Write(*ring, 1);
  std::thread waiter([&reader, &popped] {
    EXPECT_EQ(Pop(*reader), 1U);
    popped = true;
    EXPECT_EQ(Pop(*reader, 0ns), 0U);
  });
  while (!popped) std::this_thread::yield();
  std::this_thread::sleep_for(20ms);  // gives it time to wait; either way nothing may go wrong
  ring.reset();
  waiter.join();
  EXPECT_EQ(reader->ring, nullptr);
  EXPECT_EQ(Pop(*reader, 0ns), 0U);
  reader->WaitAbort();
}

TEST(RingBufferTest, ResizingKeepsPositionsAndReaders) {
  RingBuffer ring(Capacity);
  const std::unique_ptr<Reader> reader(ring.CreateReader(nullptr));
  Write(ring, 1, 2);
  ring.Resize(2);
  EXPECT_EQ(ring.Size(), 2);
  EXPECT_EQ(ring.WritePosition(), 2U);
  EXPECT_EQ(Pop(*reader, 1ns), 0U);
  Write(ring, 3, 3);
  EXPECT_EQ(Pop(*reader), 4U);
}

TEST(RingBufferTest, ReadersOfARunningWriterSeeEveryPacketOnceAndInOrder) {
  const std::uint32_t Last = 20000;
  RingBuffer ring(64);
  std::vector<std::unique_ptr<Reader>> readers;
  for (int i = 0; i < 3; ++i) readers.emplace_back(ring.CreateReader(nullptr));
  std::vector<std::thread> threads;
  for (const auto& reader : readers) {
    threads.emplace_back([&reader, &ring, Last] {
      std::uint32_t before = 0;
      while (before != Last) {
        Packet* packet = nullptr;
        ASSERT_TRUE(reader->Pop(packet, Patience));
        ASSERT_GT(packet->Sequence(), before);
        ASSERT_EQ(packet->Data()[0], 1);
        before = packet->Sequence();
        ASSERT_LE(ring.WritePosition() - reader->position, Last);
      }
    });
  }
  for (std::uint32_t i = 1; i <= Last; ++i) Write(ring, i);
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace nimbo::stream
