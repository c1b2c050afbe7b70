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

RingBuffer::Entry RingReader::Take() {
  RingBuffer::Entry entry = _ring->Take(*_reader);
  if (entry.packet) {
    _missed += Passed();
    ++_taken;
  }
  return entry;
}

RingBuffer::Entry RingReader::TakeNewestKey(unsigned int& passed) {
  RingBuffer::Entry entry = _ring->TakeNewestKey(*_reader);
  if (entry.packet) {
    passed = Passed();
    ++_taken;
  }
  return entry;
}

Held<Packet> RingReader::Wait() {
  Packet* packet = nullptr;
  if (!_reader->Pop(packet, std::chrono::nanoseconds::zero())) return nullptr;
  _missed += Passed();
  return Share(*packet);
}

bool RingReader::AtEnd() const { return sync::Load(_reader->ring) == nullptr; }

unsigned int RingReader::Passed() {
  // Positions wrap, their distance does not.
  const std::uint32_t behind = _reader->position;
  return behind - 1 - std::exchange(_next, behind);
}

}  // namespace nimbo::stream
