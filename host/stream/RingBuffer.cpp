#include "host/stream/RingBuffer.h"

#include <algorithm>
#include <cassert>

namespace nimbo::stream {

namespace {

using Clock = std::chrono::steady_clock;

/// Longer waits have no limit: adding them to the clock's time could overflow, the seconds of the
/// system's calls on 32-bit machines first.
constexpr std::chrono::hours LongestWait{24 * 365};

std::optional<Clock::time_point> DeadlineAfter(std::chrono::nanoseconds timeout) {
  if (timeout > LongestWait) return std::nullopt;
  return Clock::now() + timeout;
}

/// Waits once. False when the deadline has passed.
bool WaitOnce(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
              const std::optional<Clock::time_point>& deadline) {
  if (deadline) return changed.wait_until(lock, *deadline) == std::cv_status::no_timeout;
  changed.wait(lock);
  return true;
}

}  // namespace

RingBuffer::RingBuffer(int capacity, std::uint32_t start)
    : _capacity(std::max(capacity, 1)),
      _slots(static_cast<std::size_t>(_capacity.load()), nullptr),
      _write(start) {}

RingBuffer::~RingBuffer() {
  {
    std::unique_lock<std::mutex> lock(_mutex);
    _ending = true;
    for (const auto& member : _members) member->reader->ring = nullptr;
    _changed.notify_all();
    _left.wait(lock, [this] { return _inside == 0; });
  }
  for (const auto& member : _members) {
    if (Packet* packet = Unpin(*member)) packet->Release();
  }
  Clear();
  for (IMedia* media : _medias) media->Release();
}

void RingBuffer::Write(Packet& packet) {
  packet.Hold();
  Packet* dropped;
  {
    const std::lock_guard<std::mutex> lock(_mutex);
    dropped = std::exchange(_slots[_next], &packet);
    _next = (_next + 1) % _slots.size();
    if (!dropped) ++_count;
    _write.fetch_add(1, std::memory_order_release);
  }
  _changed.notify_all();
  if (dropped) dropped->Release();
}

void RingBuffer::Resize(int capacity) {
  capacity = std::max(capacity, 1);
  std::vector<Packet*> dropped(static_cast<std::size_t>(capacity), nullptr);
  {
    const std::lock_guard<std::mutex> lock(_mutex);
    _slots.swap(dropped);
    _capacity = capacity;
    _next = 0;
    _count = 0;
  }
  for (Packet* packet : dropped) {
    if (packet) packet->Release();
  }
}

void RingBuffer::SetMedia(IMedia* media) {
  {
    const std::lock_guard<std::mutex> lock(_mutex);
    if (media && std::find(_medias.begin(), _medias.end(), media) == _medias.end()) {
      media->Hold();
      _medias.push_back(media);
    }
    _media = media;
    _media_known = true;
  }
  _changed.notify_all();
}

void RingBuffer::ForgetMedia() {
  const std::lock_guard<std::mutex> lock(_mutex);
  _media_known = false;
  _media = nullptr;
}

IMedia* RingBuffer::Media(std::chrono::nanoseconds timeout) {
  const auto deadline = DeadlineAfter(timeout);
  std::unique_lock<std::mutex> lock(_mutex);
  while (!_media_known) {
    if (!WaitOnce(_changed, lock, deadline)) break;
  }
  return _media;
}

std::pair<IRing<Packet*>*, std::uint32_t> RingBuffer::StartPoint() {
  return {this, WritePosition()};
}

Packet** RingBuffer::Get(std::uint32_t position) {
  const std::lock_guard<std::mutex> lock(_mutex);
  for (const auto& pin : _pins) {
    if (pin->readers > 0 && pin->position == position) return &pin->packet;
  }
  return Slot(position);
}

int RingBuffer::Wait(Reader& reader, bool& woken) { return WaitUntil(reader, woken, std::nullopt); }

int RingBuffer::WaitFor(Reader& reader, bool& woken, std::int64_t timeout) {
  return WaitUntil(reader, woken, DeadlineAfter(std::chrono::nanoseconds(timeout)));
}

int RingBuffer::WaitUntil(Reader& reader, bool& woken, const Deadline& deadline) {
  std::unique_lock<std::mutex> lock(_mutex);
  Member* member = Find(reader);
  if (!member) return 0;
  ++_inside;
  if (Packet* done = Unpin(*member)) {
    lock.unlock();
    done->Release();
    lock.lock();
  }
  bool ready = false;
  for (bool in_time = true; !_ending;) {
    if (std::exchange(member->aborted, false)) {
      woken = true;
      break;
    }
    ready = Ready(reader);
    if (ready) PinFor(*member);
    if (ready || !in_time) break;
    in_time = WaitOnce(_changed, lock, deadline);
  }
  --_inside;
  if (_ending && _inside == 0) _left.notify_all();
  return ready ? 1 : 0;
}

void RingBuffer::Wake(Reader& reader) {
  {
    const std::lock_guard<std::mutex> lock(_mutex);
    if (Member* member = Find(reader)) member->aborted = true;
  }
  _changed.notify_all();
}

void RingBuffer::AddReader(Reader& reader) {
  const std::lock_guard<std::mutex> lock(_mutex);
  _pins.push_back(std::make_unique<Pinned>());
  _members.push_back(std::make_unique<Member>(Member{&reader}));
  reader.ring = this;
  reader.position = WritePosition();
}

void RingBuffer::ReaderAdded(Reader&) {}

std::uint32_t RingBuffer::Unread() {
  const std::lock_guard<std::mutex> lock(_mutex);
  std::uint32_t most = 0;
  for (const auto& member : _members)
    most = std::max(most, WritePosition() - member->reader->position.load());
  return most;
}

void RingBuffer::RemoveReader(Reader& reader) {
  Packet* done = nullptr;
  {
    const std::lock_guard<std::mutex> lock(_mutex);
    Member* member = Find(reader);
    if (!member) return;
    done = Unpin(*member);
    const auto unused =
        std::find_if(_pins.begin(), _pins.end(), [](const auto& pin) { return pin->readers == 0; });
    assert(unused != _pins.end());
    _pins.erase(unused);
    _members.erase(std::find_if(_members.begin(), _members.end(),
                                [member](const auto& other) { return other.get() == member; }));
    reader.ring = nullptr;
  }
  if (done) done->Release();
}

RingBuffer::Member* RingBuffer::Find(const Reader& reader) {
  for (const auto& member : _members) {
    if (member->reader == &reader) return member.get();
  }
  return nullptr;
}

Packet** RingBuffer::Slot(std::uint32_t position) {
  // Positions wrap, so they are only ever compared by their distance from the write position.
  const std::uint32_t behind = WritePosition() - position;
  if (behind == 0 || behind > _count) return nullptr;
  return &_slots[(_next + _slots.size() - behind) % _slots.size()];
}

bool RingBuffer::Ready(Reader& reader) {
  const std::uint32_t write = WritePosition();
  const std::uint32_t behind = write - reader.position;
  if (behind > _count) reader.position = write - static_cast<std::uint32_t>(_count);
  return reader.position != write;
}

void RingBuffer::PinFor(Member& member) {
  const std::uint32_t position = member.reader->position;
  Pinned* place = nullptr;
  for (const auto& pin : _pins) {
    if (pin->readers > 0 && pin->position == position) {
      place = pin.get();
      break;
    }
    if (pin->readers == 0) place = pin.get();
  }
  assert(place);
  if (place->readers++ == 0) {
    place->position = position;
    place->packet = *Slot(position);
    place->packet->Hold();
  }
  member.pin = place;
}

Packet* RingBuffer::Unpin(Member& member) {
  Pinned* pin = std::exchange(member.pin, nullptr);
  if (!pin || --pin->readers > 0) return nullptr;
  return std::exchange(pin->packet, nullptr);
}

}  // namespace nimbo::stream
