#include "host/elements/QueueElement.h"

#include <cstring>
#include <utility>

#include "host/elements/Properties.h"
#include "host/stream/Console.h"
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
    Queue(*pair, Share(packet));
  }
  _filled->Notify();
  return true;
}

void QueueElement::Queue(Pair& pair, Held<Packet> packet) {
  const std::size_t before = pair.queue.Size();
  _dropped += pair.queue.Offer(std::move(packet), _order++);
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
      Held<Packet> packet = pair->ring->Take();
      if (!packet) break;
      pair->input->Count(*packet, true);
      Queue(*pair, std::move(packet));
    }
  }
}

void QueueElement::Run() {
  const sync::Lock lock(_mutex);
  while (_taking) {
    ReadRings();
    auto due = Clock::time_point::max();
    Pair* pair = Choose(due);
    if (!pair) {
      const sync::Unlock meanwhile(_mutex);
      if (due == Clock::time_point::max()) {
        _filled->Wait();
      } else {
        _filled->WaitUntil(due);
      }
      continue;
    }
    Held<Packet> packet = pair->queue.Pop();
    --_queued;
    Port& output = *pair->output;
    // A source that was held up goes on with half a queue at once, not with a packet at a time.
    const bool drained = pair->queue.HalfEmpty();
    const sync::Unlock meanwhile(_mutex);
    if (drained) _drained.NotifyAll();
    if (output.Deliver(*packet)) ++_packets;
    packet.reset();
  }
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
  _queued = 0;
}

bool QueueElement::SetCount(const char* key, const char* text) {
  return SetPacketCount(*this, key, text, _max);
}

}  // namespace nimbo::stream
