#include "host/stream/RingBuffer.h"

#include <algorithm>
#include <cassert>

#include "host/stream/Media.h"
#include "sync/Atomic.h"

namespace nimbo::stream {

namespace {

/// Longer waits have no limit: adding them to the clock's time could overflow, the seconds of the
/// system's calls on 32-bit machines first.
constexpr std::chrono::hours LongestWait{24 * 365};
/// A ring without a packet for so long is silent, and waited for no longer than this then.
constexpr std::chrono::milliseconds Silence{500};
constexpr std::chrono::milliseconds WaitInSilence{5};

std::optional<Clock::time_point> DeadlineAfter(std::chrono::nanoseconds timeout) {
  if (timeout > LongestWait) return std::nullopt;
  return Clock::now() + timeout;
}

}  // namespace

RingBuffer::RingBuffer(int capacity, std::uint32_t start)
    : _capacity(std::max(capacity, 1)),
      _write(start),
      _slots(static_cast<std::size_t>(_capacity.load())) {}

RingBuffer::~RingBuffer() {
  {
    const sync::Lock lock(_mutex);
    _ending = true;
    for (const auto& member : _members) sync::Store(member->reader->ring, nullptr);
    _changed.NotifyAll();
    while (_inside != 0) _left.Wait(_mutex);
  }
  for (const auto& member : _members) Unpin(*member);
  for (const Written& entry : _slots) const Held<Packet> released(entry.packet);
}

void RingBuffer::Write(Packet& packet) {
  Held<Packet> dropped;
  {
    const sync::Lock lock(_mutex);
    _heard = Clock::now();
    const Written added = {Share(packet).release(), _heard};
    dropped.reset(std::exchange(_slots[_next], added).packet);
    if (_go_on && !_go_on->pictures && IsVideo(packet)) _go_on->pictures = true;
    _next = (_next + 1) % _slots.size();
    if (!dropped) ++_count;
    _write.fetch_add(1, std::memory_order_release);
  }
  _changed.NotifyAll();
  {
    const sync::Lock lock(_listening);
    for (const Listener& listener : _listeners) listener.written();
  }
}

void RingBuffer::Resize(int capacity) {
  capacity = std::max(capacity, 1);
  std::vector<Written> dropped(static_cast<std::size_t>(capacity));
  {
    const sync::Lock lock(_mutex);
    _slots.swap(dropped);
    _capacity = capacity;
    _next = 0;
    _count = 0;
  }
  for (const Written& entry : dropped) const Held<Packet> released(entry.packet);
}

void RingBuffer::WaitForRoom(Clock::time_point deadline) {
  const sync::Lock lock(_mutex);
  _writer_waits = true;
  while (!_hurry && IsFull() && Clock::now() < deadline) {
    _room.WaitUntil(_mutex, Clock::WakeAt(deadline));
  }
  _writer_waits = false;
}

bool RingBuffer::IsFull() {
  for (const auto& member : _members) {
    if (WritePosition() - sync::Load(member->reader->position) >= _slots.size()) return true;
  }
  return false;
}

void RingBuffer::Hurry(bool hurry) {
  const sync::Lock lock(_mutex);
  _hurry = hurry;
  _room.NotifyAll();
}

void RingBuffer::SetMaxLag(std::chrono::nanoseconds lag, std::shared_ptr<GoOn> goOn) {
  const sync::Lock lock(_mutex);
  _max_lag = lag;
  _go_on = std::move(goOn);
}

void RingBuffer::SetMedia(IMedia* media) {
  {
    const sync::Lock lock(_mutex);
    const auto same = [media](const auto& known) { return known.get() == media; };
    if (media && std::ranges::none_of(_medias, same)) _medias.push_back(Share(*media));
    _media = media;
    _media_known = true;
  }
  _changed.NotifyAll();
}

void RingBuffer::ForgetMedia() {
  const sync::Lock lock(_mutex);
  _media_known = false;
  _media = nullptr;
}

IMedia* RingBuffer::Media(std::chrono::nanoseconds timeout) {
  const auto deadline = DeadlineAfter(timeout);
  const sync::Lock lock(_mutex);
  while (!_media_known) {
    if (!WaitOnce(deadline)) break;
  }
  return _media;
}

std::pair<IRing<Packet*>*, std::uint32_t> RingBuffer::StartPoint() {
  return {this, WritePosition()};
}

Packet** RingBuffer::Get(std::uint32_t position) {
  const sync::Lock lock(_mutex);
  for (const auto& pin : _pins) {
    if (pin->readers > 0 && pin->position == position) return &pin->packet;
  }
  Written* entry = Slot(position);
  return entry ? &entry->packet : nullptr;
}

int RingBuffer::Wait(Reader& reader, bool& woken) { return WaitUntil(reader, woken, std::nullopt); }

int RingBuffer::WaitFor(Reader& reader, bool& woken, std::int64_t timeout) {
  return WaitUntil(reader, woken, DeadlineAfter(std::chrono::nanoseconds(timeout)));
}

int RingBuffer::WaitUntil(Reader& reader, bool& woken, const Deadline& deadline) {
  const sync::Lock lock(_mutex);
  Member* member = Find(reader);
  if (!member) return 0;
  ++_inside;
  if (Held<Packet> done = Unpin(*member)) {
    const sync::Unlock meanwhile(_mutex);
    done.reset();
  }
  if (_writer_waits) _room.NotifyAll();
  const Deadline end = EndOfWait(deadline);
  bool ready = false;
  for (bool in_time = true; !_ending;) {
    if (std::exchange(member->aborted, false)) {
      woken = true;
      break;
    }
    ready = MoveReader(*member);
    if (ready) PinFor(*member);
    if (ready || !in_time) break;
    in_time = WaitOnce(end);
  }
  --_inside;
  if (_ending && _inside == 0) _left.NotifyAll();
  return ready ? 1 : 0;
}

RingBuffer::Deadline RingBuffer::EndOfWait(const Deadline& deadline) {
  if (!deadline || _max_lag.count() == 0 || !_go_on || _go_on->held == 0) return deadline;
  return std::min(*deadline, std::max(_heard + Silence, Clock::now() + WaitInSilence));
}

bool RingBuffer::WaitOnce(const Deadline& deadline) {
  if (deadline) {
    _changed.WaitUntil(_mutex, Clock::WakeAt(*deadline));
    return Clock::now() < *deadline;
  }
  _changed.Wait(_mutex);
  return true;
}

void RingBuffer::Wake(Reader& reader) {
  {
    const sync::Lock lock(_mutex);
    if (Member* member = Find(reader)) member->aborted = true;
  }
  _changed.NotifyAll();
}

void RingBuffer::AddReader(Reader& reader) {
  const sync::Lock lock(_mutex);
  _pins.push_back(std::make_unique<Pinned>());
  _members.push_back(std::make_unique<Member>(Member{&reader}));
  _heard = Clock::now();
  sync::Store(reader.ring, this);
  sync::Store(reader.position, WritePosition());
}

void RingBuffer::ReaderAdded(Reader&) {}

std::uint32_t RingBuffer::Unread() {
  const sync::Lock lock(_mutex);
  std::uint32_t most = 0;
  for (const auto& member : _members) most = std::max(most, UnreadBy(*member));
  return most;
}

std::uint32_t RingBuffer::UnreadBy(const Member& member) {
  const std::uint32_t next = sync::Load(member.reader->position);
  const bool holds = member.pin && member.pin->position != next;
  return WritePosition() - next + (holds ? 1 : 0);
}

RingBuffer::Lost RingBuffer::LostPackets() {
  const sync::Lock lock(_mutex);
  return _lost;
}

RingBuffer::Entry RingBuffer::Take(Reader& reader) {
  if (reader.position == WritePosition()) return {};  // no need to lock
  const sync::Lock lock(_mutex);
  if (!Ready(reader)) return {};
  const Written& entry = *Slot(reader.position);
  sync::Store(reader.position, reader.position + 1);
  if (_writer_waits) _room.NotifyAll();
  return {Share(*entry.packet), entry.time};
}

RingBuffer::Entry RingBuffer::TakeNewestKey(Reader& reader) {
  const sync::Lock lock(_mutex);
  if (!Ready(reader)) return {};
  const std::uint32_t key = NewestKey(reader.position - 1);
  if (key == reader.position - 1) return {};
  const Written& entry = *Slot(key);
  sync::Store(reader.position, key + 1);
  if (_writer_waits) _room.NotifyAll();
  return {Share(*entry.packet), entry.time};
}

void RingBuffer::Listen(const Reader& reader, std::function<void()> written) {
  const sync::Lock lock(_listening);
  _listeners.push_back({&reader, std::move(written)});
}

void RingBuffer::RemoveReader(Reader& reader) {
  {
    const sync::Lock lock(_listening);
    const auto of = [&reader](const Listener& listener) { return listener.reader == &reader; };
    _listeners.erase(std::remove_if(_listeners.begin(), _listeners.end(), of), _listeners.end());
  }
  Held<Packet> done;
  {
    const sync::Lock lock(_mutex);
    Member* member = Find(reader);
    if (!member) return;
    done = Unpin(*member);
    const auto unused =
        std::find_if(_pins.begin(), _pins.end(), [](const auto& pin) { return pin->readers == 0; });
    assert(unused != _pins.end());
    _pins.erase(unused);
    _members.erase(std::find_if(_members.begin(), _members.end(),
                                [member](const auto& other) { return other.get() == member; }));
    sync::Store(reader.ring, nullptr);
  }
}

RingBuffer::Member* RingBuffer::Find(const Reader& reader) {
  for (const auto& member : _members) {
    if (member->reader == &reader) return member.get();
  }
  return nullptr;
}

RingBuffer::Written* RingBuffer::Slot(std::uint32_t position) {
  // Positions wrap, so they are only ever compared by their distance from the write position.
  const std::uint32_t behind = WritePosition() - position;
  if (behind == 0 || behind > _count) return nullptr;
  return &_slots[(_next + _slots.size() - behind) % _slots.size()];
}

bool RingBuffer::Ready(Reader& reader) {
  const std::uint32_t write = WritePosition();
  const std::uint32_t behind = write - reader.position;
  if (behind > _count) sync::Store(reader.position, write - static_cast<std::uint32_t>(_count));
  return reader.position != write;
}

/// The same for a reader that waits: what it loses is counted, and it is not left behind.
bool RingBuffer::MoveReader(Member& member) {
  Reader& reader = *member.reader;
  const std::uint32_t before = reader.position;
  if (!Ready(reader)) return false;
  const std::uint32_t oldest = reader.position;
  const std::uint32_t next = PassLate(member);
  _lost.overwritten += oldest - before;
  _lost.late += next - oldest;
  if (next != oldest) sync::Store(reader.position, next);
  return true;
}

std::uint32_t RingBuffer::PassLate(Member& member) {
  std::uint32_t position = member.reader->position;
  if (_max_lag.count() == 0 || position + 1 == WritePosition()) return position;
  const Written& next = *Slot(position);
  const auto now = Clock::now();
  const auto lag = now - next.time;
  if (!_go_on || !_go_on->pictures || IsVideo(*next.packet)) {
    if (!member.judge.IsLate(now, lag, _max_lag)) return position;
    const std::uint32_t key = NewestKey(position);
    if (_go_on && key != position) _go_on->from = Slot(key)->packet->TimeStamp();
    return key;
  }
  if (lag <= _max_lag / 2) return position;  // its pictures are in time
  const std::int64_t from = _go_on->from;
  while (position + 1 != WritePosition() && Slot(position)->packet->TimeStamp() < from) ++position;
  return position;
}

std::uint32_t RingBuffer::NewestKey(std::uint32_t position) {
  std::uint32_t key = WritePosition() - 1;
  while (key != position && !Slot(key)->packet->IsKey()) --key;
  return key;
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
    place->packet = Share(*Slot(position)->packet).release();
  }
  member.pin = place;
  member.counts = _go_on;
  if (member.counts) ++member.counts->held;
}

Held<Packet> RingBuffer::Unpin(Member& member) {
  if (const auto counts = std::exchange(member.counts, nullptr)) --counts->held;
  Pinned* pin = std::exchange(member.pin, nullptr);
  if (!pin || --pin->readers > 0) return nullptr;
  return Held<Packet>(std::exchange(pin->packet, nullptr));
}

}  // namespace nimbo::stream
