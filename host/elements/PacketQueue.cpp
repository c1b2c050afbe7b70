#include "host/elements/PacketQueue.h"

#include <cassert>
#include <utility>

#include "host/stream/Media.h"

namespace nimbo::stream {

namespace {

/// True when a decoder can start with the packet: a key frame, or any frame of sound.
bool CanStart(const Packet& packet) { return packet.IsKey() || !IsVideo(packet); }

}  // namespace

void PacketQueue::Reset(std::size_t capacity) {
  Clear();
  _slots = std::vector<Slot>(capacity);
  _first = 0;
}

void PacketQueue::Clear() {
  while (!Empty()) Pop();
  _awaits_start = false;
}

void PacketQueue::Push(Held<Packet> packet, std::uint64_t order, Clock::time_point since) {
  assert(!Full());
  _slots[(_first + _count) % _slots.size()] = {std::move(packet), order, since};
  ++_count;
}

unsigned int PacketQueue::Offer(Held<Packet> packet, std::uint64_t order, Clock::time_point since) {
  unsigned int dropped = 0;
  if (Full()) {
    do {
      Pop();
      ++dropped;
    } while (!Empty() && !CanStart(Front()));
    _awaits_start = Empty();
  }
  if (_awaits_start && !CanStart(*packet)) return dropped + 1;
  _awaits_start = false;
  Push(std::move(packet), order, since);
  return dropped;
}

unsigned int PacketQueue::DropToNewestKey() {
  std::size_t key = _count - 1;
  while (key > 0 && !At(key).packet->IsKey()) --key;
  for (std::size_t i = 0; i < key; ++i) Pop();
  return static_cast<unsigned int>(key);
}

Held<Packet> PacketQueue::Pop() {
  assert(!Empty());
  Held<Packet> packet = std::move(_slots[_first].packet);
  _first = (_first + 1) % _slots.size();
  --_count;
  return packet;
}

}  // namespace nimbo::stream
