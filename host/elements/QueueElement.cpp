#include "host/elements/QueueElement.h"

#include <cstring>

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
  pair->input = &HostState().Add(this, caps, false);
  pair->output = &HostState().Add(this, "", true);
  pair->output->Follow(*pair->input);
  Port* input = pair->input;
  const std::lock_guard<std::mutex> lock(_mutex);
  pair->queue.Reset(static_cast<std::size_t>(_max.load()));
  _pairs.push_back(std::move(pair));
  return input;
}

void QueueElement::MediaKnown(Port& input) {
  for (const auto& pair : _pairs) {
    if (pair->input == &input) TellMedia(*pair->output);
  }
}

bool QueueElement::Start() {
  {
    const std::lock_guard<std::mutex> lock(_mutex);
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
  std::unique_lock<std::mutex> lock(_mutex);
  Pair* pair = nullptr;
  for (const auto& candidate : _pairs) {
    if (candidate->input == from) pair = candidate.get();
  }
  if (!pair) return false;
  if (pair->queue.Full() && SourceCanWait(*pair->input)) {
    _drained.wait(lock, [this, pair] { return !_taking || !pair->queue.Full(); });
  }
  if (!_taking) return true;
  const std::size_t before = pair->queue.Size();
  _dropped += pair->queue.Offer(packet, _order++);
  _queued += static_cast<unsigned int>(pair->queue.Size() - before);
  pair->silent = false;
  lock.unlock();
  _filled.notify_one();
  return true;
}

void QueueElement::Run() {
  std::unique_lock<std::mutex> lock(_mutex);
  while (_taking) {
    auto due = Clock::time_point::max();
    Pair* pair = Choose(due);
    if (!pair) {
      if (due == Clock::time_point::max()) {
        _filled.wait(lock);
      } else {
        _filled.wait_until(lock, due);
      }
      continue;
    }
    Packet* packet = pair->queue.Pop();
    --_queued;
    Port& output = *pair->output;
    lock.unlock();
    _drained.notify_all();
    if (output.Deliver(*packet)) ++_packets;
    packet->Release();
    lock.lock();
  }
}

void QueueElement::EndWaits() {
  {
    const std::lock_guard<std::mutex> lock(_mutex);
    _taking = false;
  }
  _filled.notify_all();
  _drained.notify_all();
}

void QueueElement::Ended() {
  const std::lock_guard<std::mutex> lock(_mutex);
  for (const auto& pair : _pairs) pair->queue.Clear();
  _queued = 0;
}

bool QueueElement::SetCount(const char* key, const char* text) {
  return SetPacketCount(*this, key, text, _max);
}

}  // namespace nimbo::stream
