#include "host/elements/RingReader.h"

#include <utility>

#include "sync/Atomic.h"

namespace nimbo::stream {

void RingReader::Open(PacketRing& ring, base::object* owner) {
  // The ring's element may be destroyed while this one plays.
  if (auto* buffer = dynamic_cast<RingBuffer*>(&ring)) _ring = buffer->weak_from_this().lock();
  _reader.reset(ring.CreateReader(owner));
  _next = _reader->position;
}

void RingReader::Close() {
  _reader.reset();
  _ring.reset();
}

bool RingReader::Listen(std::function<void()> written) {
  if (!_ring) return false;
  _ring->Listen(*_reader, std::move(written));
  return true;
}

Held<Packet> RingReader::Take() {
  Held<Packet> packet = _ring->Take(*_reader);
  if (packet) {
    CountMissed();
    ++_taken;
  }
  return packet;
}

Held<Packet> RingReader::Wait() {
  Packet* packet = nullptr;
  if (!_reader->Pop(packet, std::chrono::nanoseconds::zero())) return nullptr;
  CountMissed();
  return Share(*packet);
}

bool RingReader::AtEnd() const { return sync::Load(_reader->ring) == nullptr; }

void RingReader::CountMissed() {
  // A ring moves a reader that it has overtaken. Positions wrap, their distance does not.
  const std::uint32_t behind = _reader->position;
  _missed += behind - 1 - _next;
  _next = behind;
}

}  // namespace nimbo::stream
