#include "host/stream/RingBuffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <set>
#include <thread>

#include "tests/support/MediaSamples.h"
#include "tests/support/StoppedClock.h"

namespace nimbo::stream {
namespace {

using test::NewPacket;
using namespace std::chrono_literals;
using Reader = IRing<Packet*>::Reader;
using testing::ElementsAre;

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

/// Another framework's ring: it tells what its readers ask of it.
class ForeignRing : public IRing<int> {
 public:
  std::vector<std::string> Take() { return std::exchange(_asked, {}); }
  bool wake = false;

  std::pair<IRing*, std::uint32_t> StartPoint() override {
    Add("StartPoint");
    return {this, 5};
  }
  int* Get(std::uint32_t position) override {
    Add("Get " + std::to_string(position));
    return &_entry;
  }
  int Wait(Reader&, bool& woken) override {
    Add("Wait");
    woken = wake;
    return 1;
  }
  int WaitFor(Reader&, bool& woken, std::int64_t timeout) override {
    Add("WaitFor " + std::to_string(timeout));
    woken = wake;
    return 1;
  }
  void Wake(Reader&) override { Add("Wake"); }
  void AddReader(Reader& reader) override {
    Add("AddReader");
    reader.ring = this;
  }
  void ReaderAdded(Reader& reader) override { Add(reader.owner ? "ReaderAdded" : "no owner"); }
  void RemoveReader(Reader&) override { Add("RemoveReader"); }
  int Size() const override { return 1; }
  std::uint32_t WritePosition() const override { return 0; }

 private:
  void Add(std::string what) { _asked.push_back(std::move(what)); }
  std::vector<std::string> _asked;
  int _entry = 42;
};

TEST(RingReaderTest, AsksARingForEveryStepInItsOrder) {
  ForeignRing ring;
  base::object owner;
  std::unique_ptr<IRing<int>::Reader> reader(ring.CreateReader(&owner));
  EXPECT_THAT(ring.Take(), ElementsAre("StartPoint", "AddReader", "ReaderAdded"));
  EXPECT_EQ(reader->owner, &owner);
  int entry = 0;
  EXPECT_TRUE(reader->Pop(entry, 7ns));
  EXPECT_EQ(entry, 42);
  EXPECT_TRUE(reader->Pop(entry, 0ns) && reader->Pop(entry, -1ns));
  EXPECT_THAT(ring.Take(), ElementsAre("WaitFor 7", "Get 5", "Wait", "Get 6", "Wait", "Get 7"))
      << "without a time there is no limit";
  ring.wake = true;
  EXPECT_TRUE(reader->Pop(entry, 1ns)) << "a wake-up alone does not lose what is there";
  reader->wakeTest = [] { return false; };
  EXPECT_FALSE(reader->Pop(entry, 1ns));
  EXPECT_EQ(reader->position, 9u);
  ring.Take();
  reader->WaitAbort();
  reader.reset();
  EXPECT_THAT(ring.Take(), ElementsAre("Wake", "RemoveReader"));
}

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
  const std::unique_ptr<Reader> lapped(ring.CreateReader(nullptr));
  const std::unique_ptr<Reader> near(ring.CreateReader(nullptr));
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

/// Packets a millisecond apart, behind a key frame at the numbers named.
void WriteStream(RingBuffer& ring, IMedia* media, std::uint32_t last,
                 const std::set<std::uint32_t>& keys) {
  for (std::uint32_t i = 1; i <= last; ++i) {
    ring.Write(*NewPacket({{1}, keys.count(i) != 0, i * test::Millisecond, i, media}));
  }
}

TEST(RingBufferTest, ALateReaderGoesOnAtTheNewestKeyFrameAndSoundWithThePictures) {
  nimbo::test::StoppedClock clock;
  const auto goOn = std::make_shared<GoOn>();
  const Held<IMedia> video = test::VideoMedia(), audio = test::AudioMedia();
  RingBuffer pictures(16), sound(16);
  for (RingBuffer* ring : {&pictures, &sound}) ring->SetMaxLag(5ms, goOn);
  const std::unique_ptr<Reader> watching(pictures.CreateReader(nullptr));
  const std::unique_ptr<Reader> listening(sound.CreateReader(nullptr));
  WriteStream(pictures, video.get(), 9, {1, 4, 7});
  WriteStream(sound, audio.get(), 9, {1, 2, 3, 4, 5, 6, 7, 8, 9});
  clock.Advance(6ms);
  EXPECT_EQ(Pop(*listening), 1U) << "no picture was left out yet";
  EXPECT_EQ(Pop(*watching), 7U);
  EXPECT_EQ(Pop(*watching), 8U) << "late, too, but there is no newer key frame";
  EXPECT_EQ(Pop(*listening), 7U);
  EXPECT_EQ(pictures.LostPackets().late, 6U);
  EXPECT_EQ(sound.LostPackets().late, 5U);
  EXPECT_EQ(pictures.LostPackets().overwritten, 0U);
  pictures.SetMaxLag(1h, goOn);
  WriteStream(pictures, video.get(), 9, {1, 4, 7});
  EXPECT_EQ(Pop(*watching), 9U) << "in time";
  EXPECT_EQ(Pop(*watching), 1U);
}

TEST(RingBufferTest, AWriterThatWaitsForRoomLosesNothingUnlessItIsHurried) {
  RingBuffer ring(2);
  const std::unique_ptr<Reader> reader(ring.CreateReader(nullptr));
  std::thread writer([&ring] {
    for (std::uint32_t i = 1; i <= 50; ++i) {
      ring.WaitForRoom(std::chrono::steady_clock::now() + Patience);
      Write(ring, i);
    }
  });
  for (std::uint32_t i = 1; i <= 20; ++i) EXPECT_EQ(Pop(*reader), i);
  ring.Hurry(true);
  writer.join();
  EXPECT_EQ(Pop(*reader), 49U);
  ring.Hurry(false);
  Write(ring, 51);
  ring.WaitForRoom(std::chrono::steady_clock::now() + 1ms);
}

/// With a writer that waits for them, and with one that overtakes them.
class RingBufferWriter : public testing::TestWithParam<bool> {};

TEST_P(RingBufferWriter, ItsReadersSeeEveryPacketThatItDoesNotOverwriteOnceAndInOrder) {
  constexpr std::uint32_t Last = 20000, Room = 64;
  RingBuffer ring(Room);
  std::vector<std::unique_ptr<Reader>> readers;
  for (int i = 0; i < 3; ++i) readers.emplace_back(ring.CreateReader(nullptr));
  std::vector<std::thread> threads;
  for (const auto& reader : readers) {
    threads.emplace_back([&reader, &ring] {
      for (std::uint32_t before = 0; before != Last;) {
        Packet* packet = nullptr;
        ASSERT_TRUE(reader->Pop(packet, Patience));
        const std::uint32_t sequence = packet->Sequence();
        ASSERT_GT(sequence, before);
        const bool overtaken = !GetParam() && ring.WritePosition() - before > Room;
        ASSERT_TRUE(sequence == before + 1 || overtaken) << sequence << " after " << before;
        ASSERT_EQ(reader->position, sequence) << "the first packet has the position 0";
        ASSERT_EQ(packet->Data()[0], 1);
        before = sequence;
      }
    });
  }
  for (std::uint32_t i = 1; i <= Last; ++i) {
    while (GetParam() && ring.Unread() == Room) std::this_thread::yield();
    Write(ring, i);
  }
  for (std::thread& thread : threads) thread.join();
}

INSTANTIATE_TEST_SUITE_P(Waits, RingBufferWriter, testing::Bool());

TEST(RingBufferTest, ItsMediaIsWaitedForUntilItIsStatedAndAnewAfterwards) {
  RingBuffer ring(Capacity);
  const Held<IMedia> media = test::VideoMedia();
  EXPECT_EQ(ring.Media(1ns), nullptr);
  for (int round = 0; round < 2; ++round) {
    auto waiting = std::async(std::launch::async,
                              [&ring] { return ring.Media(std::chrono::nanoseconds::max()); });
    EXPECT_EQ(waiting.wait_for(20ms), std::future_status::timeout);
    ring.SetMedia(media.get());
    EXPECT_EQ(waiting.get(), media.get());
    ring.ForgetMedia();
  }
}

}  // namespace
}  // namespace nimbo::stream
