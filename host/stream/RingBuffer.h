#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

#include "common/Held.h"
#include "host/base/Clock.h"
#include "host/stream/LagJudge.h"
#include "nimbo/stream/packet_ring.h"
#include "sync/Mutex.h"

namespace nimbo::stream {

/// Where readers of one application's rings that were too late go on.
struct GoOn {
  std::atomic<bool> pictures{false};  ///< one of the rings carries some
  /// Time stamp (ns) of the key frame that a reader was moved to last: sound goes on there, too.
  std::atomic<std::int64_t> from{std::numeric_limits<std::int64_t>::min()};
  std::atomic<int> held{0};  ///< packets that readers which wait have taken, and not let go yet
};

/// The packet ring of the reference host. All its memory is made by the constructor and AddReader:
/// nothing is allocated for a packet. Where its end may overtake a reading thread, the reader
/// shares its ownership.
class NIMBO_API RingBuffer final : public PacketRing,
                                   public std::enable_shared_from_this<RingBuffer> {
 public:
  /// A packet, null where there is none, and when it was written.
  struct Entry {
    Held<Packet> packet;
    Clock::time_point written;
  };

  /// A ring of `capacity` packets (at least one) whose first packet gets the position `start`.
  explicit RingBuffer(int capacity, std::uint32_t start = 0);
  /// [control] Detaches the readers, and waits until those that wait in the ring have left it. No
  /// thread may write, nor be on its way into the ring.
  ~RingBuffer() override;

  /// [writing] Appends a packet, of which the ring takes a reference, over the oldest one.
  void Write(Packet& packet) EXCLUDES(_mutex);
  /// [writing] Waits until no reader would lose a packet by the next Write, until `deadline`, or
  /// until Hurry(true), which ends this wait and all later ones up to Hurry(false). [any]
  void WaitForRoom(Clock::time_point deadline) EXCLUDES(_mutex);
  void Hurry(bool hurry) EXCLUDES(_mutex);
  /// [control] A reader that waits, and whose next packet was written longer ago than `lag`, is
  /// moved to the newest key frame, if that came later; one of sound in an application with
  /// pictures to where those went on. 0: never.
  void SetMaxLag(std::chrono::nanoseconds lag, std::shared_ptr<GoOn> goOn) EXCLUDES(_mutex);
  /// [control] Lets the packets go, apart from pinned ones. Positions go on where they were.
  void Clear() EXCLUDES(_mutex) { Resize(_capacity); }
  /// [control] The same, and changes the capacity.
  void Resize(int capacity) EXCLUDES(_mutex);

  /// [any] States what the stream carries; null says that its producer failed.
  void SetMedia(IMedia* media) EXCLUDES(_mutex);
  /// [control] The media is to be stated anew. What was stated before stays alive.
  void ForgetMedia() EXCLUDES(_mutex);
  IMedia* Media(std::chrono::nanoseconds timeout) override;

  std::pair<IRing*, std::uint32_t> StartPoint() override;
  /// A pinned entry stays as it is until the reader's next wait. One that nobody pinned may be
  /// overwritten at any time: only look at it while nothing is written.
  Packet** Get(std::uint32_t position) override;
  int Wait(Reader& reader, bool& woken) override;
  int WaitFor(Reader& reader, bool& woken, std::int64_t timeout) override;
  void Wake(Reader& reader) override;
  void AddReader(Reader& reader) override;
  void ReaderAdded(Reader& reader) override;
  void RemoveReader(Reader& reader) override;
  int Size() const override { return _capacity; }
  std::uint32_t WritePosition() const override { return _write.load(std::memory_order_acquire); }
  /// [reading] The next packet of the reader, without waiting: null when there is none yet. A
  /// reader that was lapped is moved to the oldest packet first.
  Entry Take(Reader& reader) EXCLUDES(_mutex);
  /// [reading] The same, but the newest key frame that the reader has not taken yet; those before
  /// it are passed over.
  Entry TakeNewestKey(Reader& reader) EXCLUDES(_mutex);
  /// [control] Lets the writer call `written` after each packet from now on, until the reader
  /// leaves the ring: for a reader that does not wait. It must not write, nor add or remove
  /// readers.
  void Listen(const Reader& reader, std::function<void()> written) EXCLUDES(_listening);
  /// [any] How many packets the slowest reader has not taken yet, or holds; 0 without readers.
  std::uint32_t Unread() EXCLUDES(_mutex);
  /// What readers have not got: packets that were overwritten, and that they were moved past.
  struct Lost {
    std::uint64_t overwritten = 0;
    std::uint64_t late = 0;
  };
  /// [any] Of all readers that wait, since the ring was made.
  Lost LostPackets() EXCLUDES(_mutex);

 private:
  using Deadline = std::optional<Clock::time_point>;

  /// An entry that readers hold; it has a place of its own, so that the writer can go on.
  struct Pinned {
    std::uint32_t position = 0;
    Packet* packet = nullptr;
    int readers = 0;
  };
  struct Member {
    Reader* reader;
    Pinned* pin = nullptr;
    std::shared_ptr<GoOn> counts{};  ///< where the pin is counted
    bool aborted = false;
    LagJudge judge{};
  };

  int WaitUntil(Reader& reader, bool& woken, const Deadline& deadline) EXCLUDES(_mutex);
  /// When a wait that begins now ends. Where lag counts, nobody waits on and on for a ring that has
  /// fallen silent, its track may have ended, while a packet of another one could be sent.
  Deadline EndOfWait(const Deadline& deadline) REQUIRES(_mutex);
  /// Waits once for a change. False when the deadline has passed.
  bool WaitOnce(const Deadline& deadline) REQUIRES(_mutex);
  Member* Find(const Reader& reader) REQUIRES(_mutex);
  struct Written {
    Packet* packet = nullptr;
    Clock::time_point time;
  };
  Written* Slot(std::uint32_t position) REQUIRES(_mutex);
  /// The next Write takes a packet from a reader.
  bool IsFull() REQUIRES(_mutex);
  std::uint32_t UnreadBy(const Member& member) REQUIRES(_mutex);
  /// The place of the newest key frame in front of which `position` stands, or `position`.
  std::uint32_t NewestKey(std::uint32_t position) REQUIRES(_mutex);
  /// The place where the reader, at whose position there is a packet, goes on.
  std::uint32_t PassLate(Member& member) REQUIRES(_mutex);
  bool MoveReader(Member& member) REQUIRES(_mutex);
  bool Ready(Reader& reader) REQUIRES(_mutex);
  void PinFor(Member& member) REQUIRES(_mutex);
  /// What is to be let go once the mutex is.
  Held<Packet> Unpin(Member& member) REQUIRES(_mutex);

  /// The innermost one of all: nothing else is locked, and no packet released, under it.
  sync::Mutex _mutex;
  sync::Condition _changed;  ///< a packet, an abort, a media, or the end of the ring
  sync::Condition _left;     ///< the last waiting reader has left an ending ring
  sync::Condition _room;     ///< a reader has gone on, or the writer shall
  std::atomic<int> _capacity;
  std::atomic<std::uint32_t> _write;
  /// One reference each; readers get their places, so they are plain pointers.
  std::vector<Written> _slots GUARDED_BY(_mutex);
  std::size_t _next GUARDED_BY(_mutex) = 0;   ///< index of the slot that is written next
  std::size_t _count GUARDED_BY(_mutex) = 0;  ///< packets in the slots
  std::vector<std::unique_ptr<Member>> _members GUARDED_BY(_mutex);
  std::vector<std::unique_ptr<Pinned>> _pins GUARDED_BY(_mutex);  ///< one for each member
  int _inside GUARDED_BY(_mutex) = 0;                             ///< readers in WaitUntil
  bool _ending GUARDED_BY(_mutex) = false;
  bool _hurry GUARDED_BY(_mutex) = false;
  bool _writer_waits GUARDED_BY(_mutex) = false;
  Clock::time_point _heard GUARDED_BY(_mutex);  ///< when the last packet was written
  std::chrono::nanoseconds _max_lag GUARDED_BY(_mutex){0};
  std::shared_ptr<GoOn> _go_on GUARDED_BY(_mutex);
  Lost _lost GUARDED_BY(_mutex);
  bool _media_known GUARDED_BY(_mutex) = false;
  IMedia* _media GUARDED_BY(_mutex) = nullptr;
  /// All that were ever stated.
  std::vector<Held<IMedia>> _medias GUARDED_BY(_mutex);

  struct Listener {
    const Reader* reader;
    std::function<void()> written;
  };
  /// Of its own, so that readers are not held up while listeners are told; never held with the
  /// other.
  sync::Mutex _listening;
  std::vector<Listener> _listeners GUARDED_BY(_listening);
};

}  // namespace nimbo::stream
