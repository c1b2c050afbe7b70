#include "host/elements/QueueElement.h"

#include <cstring>
#include <limits>
#include <optional>
#include <utility>

#include "host/base/Console.h"
#include "host/elements/Properties.h"
#include "host/stream/Media.h"
#include "host/stream/State.h"

namespace nimbo::stream {

IPort* QueueElement::PortAdd(const char* caps, const char* direction) {
  if (!direction || std::strcmp(direction, "in") != 0) {
    Explain("\"", Name(), "\" only adds inputs, each of which brings its output");
    return nullptr;
  }
  auto pair = std::make_unique<Pair>();
  pair->input = &HostState(*this).Add(this, caps, false);
  pair->output = &HostState(*this).Add(this, "", true);
  pair->output->Follow(*pair->input);
  Port* input = pair->input;
  const sync::Lock lock(_mutex);
  pair->queue.Reset(static_cast<std::size_t>(_max.load()));
  _pairs.push_back(std::move(pair));
  return input;
}

void QueueElement::MediaKnown(Port& input) {
  Port* output = nullptr;
  {
    const sync::Lock lock(_mutex);
    if (const Pair* pair = Find(&input)) output = pair->output;
  }
  if (output) TellMedia(*output);
}

QueueElement::Pair* QueueElement::Find(const void* input) {
  for (const auto& pair : _pairs) {
    if (pair->input == input) return pair.get();
  }
  return nullptr;
}

bool QueueElement::Start() {
  {
    const sync::Lock lock(_mutex);
    for (const auto& pair : _pairs) {
      pair->queue.Reset(static_cast<std::size_t>(_max.load()));
      pair->silent = false;
    }
    _taking = true;
    _pictures = false;
    _judge = {};
    _go_on_from = std::numeric_limits<std::int64_t>::min();
    Begin();
  }
  if (ThreadElement::Start()) return true;
  EndWaits();
  return false;
}

bool QueueElement::ReceivePacket(Packet& packet, void* from) {
  {
    const sync::Lock lock(_mutex);
    Pair* pair = Find(from);
    if (!pair) return false;
    if (pair->queue.Full() && SourceCanWait(*pair->input)) {
      while (_taking && pair->queue.Full()) _drained.Wait(_mutex);
    }
    if (!_taking) return true;
    Queue(*pair, Share(packet), Clock::now());
  }
  _filled->Notify();
  return true;
}

void QueueElement::Queue(Pair& pair, Held<Packet> packet, Clock::time_point since) {
  const bool picture = IsVideo(*packet);
  _pictures = _pictures || picture;
  if (!picture && packet->TimeStamp() < _go_on_from) {
    ++_late;
    return;
  }
  const std::size_t before = pair.queue.Size();
  _dropped += pair.queue.Offer(std::move(packet), _order++, since);
  _queued += static_cast<unsigned int>(pair.queue.Size() - before);
  pair.silent = false;
}

bool QueueElement::Attach(const Port& input, RingReader& ring) {
  {
    const sync::Lock lock(_mutex);
    Pair* pair = Find(&input);
    if (!pair || !ring.Listen([filled = _filled] { filled->Notify(); })) return false;
    pair->ring = &ring;
  }
  _filled->Notify();
  return true;
}

void QueueElement::Detach(const RingReader& ring) {
  const sync::Lock lock(_mutex);
  for (const auto& pair : _pairs) {
    if (pair->ring == &ring) pair->ring = nullptr;
  }
}

void QueueElement::ReadRings() {
  for (const auto& pair : _pairs) {
    while (pair->ring && !pair->queue.Full()) {
      ++_queued;  // before it leaves the ring, so that whoever asks meets it in one of the two
      RingBuffer::Entry entry = pair->ring->Take();
      const bool taken = entry.packet != nullptr;
      if (taken) {
        pair->input->Count(*entry.packet, true);
        Queue(*pair, std::move(entry.packet), entry.written);
      }
      --_queued;
      if (!taken) break;
    }
  }
}

bool QueueElement::DropLate() {
  if (_max_lag.load().count() == 0) return false;
  const unsigned int before = _late;
  std::optional<Clock::time_point> now;
  for (const auto& pair : _pairs) {
    if (pair->queue.Empty() || (pair->queue.Size() == 1 && !pair->queue.Full())) continue;
    if (!now) now = Clock::now();
    const bool decides = IsVideo(pair->queue.Front()) || !_pictures;
    if (decides && IsLate(*pair, *now)) GoOnAtNewestKey(*pair);
  }
  return _late != before;
}

bool QueueElement::IsLate(const Pair& pair, Clock::time_point now) {
  return (pair.ring || !SourceCanWait(*pair.input)) &&
         _judge.IsLate(now, now - pair.queue.FrontSince(), _max_lag);
}

void QueueElement::GoOnAtNewestKey(Pair& pair) {
  const std::size_t waiting = pair.queue.Size();
  unsigned int passed = 0;
  RingBuffer::Entry key;
  if (pair.ring) key = pair.ring->TakeNewestKey(passed);
  if (key.packet) {
    pair.input->Count(*key.packet, true);
    pair.queue.Clear();
    pair.queue.Push(std::move(key.packet), _order++, key.written);
    ++_queued;
    CountLate(waiting, passed);
  } else if (const unsigned int dropped = pair.queue.DropToNewestKey()) {
    CountLate(dropped);
  } else {
    return;
  }
  if (IsVideo(pair.queue.Front())) DropSoundBefore(pair.queue.Front().TimeStamp());
}

void QueueElement::DropSoundBefore(std::int64_t time) {
  _go_on_from = time;
  for (const auto& pair : _pairs) {
    PacketQueue& queue = pair->queue;
    while (!queue.Empty() && !IsVideo(queue.Front()) && queue.Front().TimeStamp() < time) {
      queue.Pop();
      CountLate(1);
    }
  }
}

void QueueElement::CountLate(std::size_t queued, unsigned int passed) {
  _queued -= static_cast<unsigned int>(queued);
  _late += static_cast<unsigned int>(queued) + passed;
}

void QueueElement::Run() {
  const sync::Lock lock(_mutex);
  while (_taking) {
    ReadRings();
    if (DropLate()) ReadRings();
    auto due = Clock::time_point::max();
    Pair* pair = Choose(due);
    if (!pair) {
      const sync::Unlock meanwhile(_mutex);
      if (due == Clock::time_point::max()) {
        _filled->Wait();
      } else {
        _filled->WaitUntil(Clock::WakeAt(due));
      }
      continue;
    }
    _delivering_since = pair->queue.FrontSince();
    Held<Packet> packet = pair->queue.Pop();
    Port& output = *pair->output;
    // A source that was held up goes on with half a queue at once, not with a packet at a time.
    const bool drained = pair->queue.HalfEmpty();
    const sync::Unlock meanwhile(_mutex);
    if (drained) _drained.NotifyAll();
    if (output.Deliver(*packet)) ++_packets;
    packet.reset();
    --_queued;
    _delivering_since = Clock::time_point();
  }
}

unsigned int QueueElement::GetLag() const {
  const Clock::time_point since = _delivering_since;
  if (since == Clock::time_point()) return 0;
  const auto lag = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since);
  return static_cast<unsigned int>(lag.count());
}

void QueueElement::EndWaits() {
  {
    const sync::Lock lock(_mutex);
    _taking = false;
  }
  _filled->Notify();
  _drained.NotifyAll();
}

void QueueElement::Ended() {
  const sync::Lock lock(_mutex);
  for (const auto& pair : _pairs) pair->queue.Clear();
  _ended += _queued.exchange(0);
}

bool QueueElement::SetCount(const char* key, const char* text) {
  return SetPacketCount(*this, key, text, _max);
}

bool QueueElement::SetMaxLag(const char* text) {
  return SetSeconds(*this, "max-lag", text, _max_lag);
}

std::string QueueElement::GetMaxLag() const { return SecondsText(_max_lag); }

}  // namespace nimbo::stream
