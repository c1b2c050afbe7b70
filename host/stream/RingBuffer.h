#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "nimbo/stream/packet_ring.h"

namespace nimbo::stream {

/// The packet ring of the reference host. All its memory is made by the constructor and AddReader:
/// nothing is allocated for a packet. Where its end may overtake a reading thread, the reader
/// shares its ownership.
class NIMBO_API RingBuffer final : public PacketRing,
                                   public std::enable_shared_from_this<RingBuffer> {
 public:
  /// A ring of `capacity` packets (at least one) whose first packet gets the position `start`.
  explicit RingBuffer(int capacity, std::uint32_t start = 0);
  /// [control] Detaches the readers, and waits until those that wait in the ring have left it. No
  /// thread may write, nor be on its way into the ring.
  ~RingBuffer() override;

  /// [writing] Appends a packet, of which the ring takes a reference, over the oldest one.
  void Write(Packet& packet);
  /// [control] Lets the packets go, apart from pinned ones. Positions go on where they were.
  void Clear() { Resize(_capacity); }
  /// [control] The same, and changes the capacity.
  void Resize(int capacity);

  /// [any] States what the stream carries; null says that its producer failed.
  void SetMedia(IMedia* media);
  /// [control] The media is to be stated anew. What was stated before stays alive.
  void ForgetMedia();
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
  /// [any] How many packets the slowest reader has not taken yet; 0 without readers.
  std::uint32_t Unread();

 private:
  using Clock = std::chrono::steady_clock;
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
    bool aborted = false;
  };

  int WaitUntil(Reader& reader, bool& woken, const Deadline& deadline);
  // The following need the mutex.
  Member* Find(const Reader& reader);
  Packet** Slot(std::uint32_t position);
  bool Ready(Reader& reader);
  void PinFor(Member& member);
  Packet* Unpin(Member& member);

  // The mutex is the innermost one of all: nothing else is locked, and no packet released, under
  // it.
  std::mutex _mutex;
  std::condition_variable _changed;  ///< a packet, an abort, a media, or the end of the ring
  std::condition_variable _left;     ///< the last waiting reader has left an ending ring
  std::atomic<int> _capacity;
  std::vector<Packet*> _slots;
  std::size_t _next = 0;   ///< index of the slot that is written next
  std::size_t _count = 0;  ///< packets in the slots
  std::atomic<std::uint32_t> _write;
  std::vector<std::unique_ptr<Member>> _members;
  std::vector<std::unique_ptr<Pinned>> _pins;  ///< one for each member
  int _inside = 0;                             ///< readers in WaitUntil
  bool _ending = false;
  bool _media_known = false;
  IMedia* _media = nullptr;
  std::vector<IMedia*> _medias;  ///< all that were ever stated, one reference each
};

}  // namespace nimbo::stream
