#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/Held.h"
#include "host/base/Clock.h"
#include "nimbo/stream/packet.h"

namespace nimbo::stream {

/// A bounded queue of held packets. Nothing is allocated for a packet. Whoever uses it from several
/// threads locks it.
class PacketQueue {
 public:
  PacketQueue() = default;
  PacketQueue(const PacketQueue&) = delete;
  PacketQueue& operator=(const PacketQueue&) = delete;

  /// Makes it an empty queue of at most `capacity` packets.
  void Reset(std::size_t capacity);
  /// Lets all packets go.
  void Clear();

  bool Empty() const { return _count == 0; }
  bool Full() const { return _count == _slots.size(); }
  bool HalfEmpty() const { return _count <= _slots.size() / 2; }
  std::size_t Size() const { return _count; }
  /// The oldest packet; there must be one.
  Packet& Front() const { return *_slots[_first].packet; }
  std::uint64_t FrontOrder() const { return _slots[_first].order; }
  Clock::time_point FrontSince() const { return _slots[_first].since; }

  /// Appends a packet that waits since `since`; there must be room. `order` comes back from
  /// FrontOrder, `since` from FrontSince.
  void Push(Held<Packet> packet, std::uint64_t order = 0, Clock::time_point since = {});
  /// Appends a packet of a stream that cannot wait. In a full queue the oldest packet makes room,
  /// and with it those behind it up to the next one that a decoder can start with; when there is
  /// none, the queue is emptied and takes no more packets up to such a one. So the stream stays
  /// decodable, is as recent as it can be, and shows one gap in its sequence numbers. Returns how
  /// many packets were dropped, `packet` included.
  unsigned int Offer(Held<Packet> packet, std::uint64_t order = 0, Clock::time_point since = {});
  /// Drops what stands before the newest key frame; there must be a packet. Returns how many.
  unsigned int DropToNewestKey();
  /// Takes the oldest packet out; there must be one.
  Held<Packet> Pop();

 private:
  struct Slot {
    Held<Packet> packet;
    std::uint64_t order = 0;
    Clock::time_point since;
  };
  const Slot& At(std::size_t place) const { return _slots[(_first + place) % _slots.size()]; }
  std::vector<Slot> _slots;
  std::size_t _first = 0;
  std::size_t _count = 0;
  bool _awaits_start = false;  ///< of something that a decoder can start with
};

}  // namespace nimbo::stream
