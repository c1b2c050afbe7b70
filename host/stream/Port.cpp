#include "host/stream/Port.h"

#include <chrono>
#include <unordered_set>
#include <utility>

#include "host/base/Clock.h"
#include "host/base/Console.h"
#include "host/stream/Shielded.h"
#include "host/stream/State.h"
#include "host/stream/Tree.h"

namespace nimbo::stream {

namespace {

/// All ports there are, by their address.
class LivePorts {
 public:
  static LivePorts& Global() {
    static auto& ports = *new LivePorts;  // ports may go while the process ends
    return ports;
  }
  void Add(const IPort* port) {
    const sync::Lock lock(_mutex);
    _ports.insert(port);
  }
  void Remove(const IPort* port) {
    const sync::Lock lock(_mutex);
    _ports.erase(port);
  }
  bool Has(const IPort* port) {
    const sync::Lock lock(_mutex);
    return _ports.count(port) != 0;
  }

 private:
  sync::Mutex _mutex;
  std::unordered_set<const IPort*> _ports GUARDED_BY(_mutex);
};

bool IsAny(const char* caps) { return !caps || !*caps; }

/// Why the two cannot be linked; null when they can.
const char* Obstacle(const Port& output, const Port& input) {
  if (!output.IsOutput() || input.IsOutput()) return "an output and an input are needed";
  if (output.Linked() || input.Linked()) return "one of them is linked already";
  if (!CapsFit(output.Caps(), input.Caps())) return "they carry different streams";
  if (output.Ring() && input.Owner()) return "a ring feeds pipelines only (link=all)";
  return nullptr;
}

}  // namespace

IPort::~IPort() = default;

bool IsLivePort(const IPort* port) { return LivePorts::Global().Has(port); }

bool CapsFit(const char* one, const char* other) {
  return IsAny(one) || IsAny(other) || base::Hash(one) == base::Hash(other);
}

Port::Port(IElement* owner, std::string caps, bool output)
    : _owner(owner), _caps(std::move(caps)), _output(output), _receiver(owner) {
  LivePorts::Global().Add(this);
}

Port::~Port() {
  LivePorts::Global().Remove(this);
  Unlink();
  SetMedia(nullptr);
}

const char* Port::Caps() const {
  if (!_caps.empty()) return _caps.c_str();
  const Port* source = _output ? _follows : Peer();
  return source ? source->Caps() : "";
}

IMedia* Port::Media() const noexcept {
  if (IMedia* media = _media.load()) return media;
  const Port* source = _output ? _follows : Peer();
  return source ? source->Media() : nullptr;
}

void Port::SetMedia(IMedia* media) {
  if (media) media->Hold();
  if (IMedia* before = _media.exchange(media)) before->Release();
}

bool Port::Link(IPort& other) {
  auto* peer = dynamic_cast<Port*>(&other);
  Port& output = _output || !peer ? *this : *peer;
  Port& input = _output && peer ? *peer : *this;
  const char* obstacle = peer ? Obstacle(output, input) : "one of them is not of this host";
  if (obstacle) {
    Explain("Ports \"", Caps(), "\" and \"", other.Caps(), "\" cannot be linked: ", obstacle);
    return false;
  }
  input._peer = &output;
  output._peer = &input;
  return true;
}

void Port::Unlink() {
  Port* const peer = _peer;
  if (!peer) return;
  Port& output = _output ? *this : *peer;
  Port& input = _output ? *peer : *this;
  {
    const sync::Lock lock(output._mutex);
    output._peer = nullptr;
    output._changed.NotifyAll();
  }
  // Whoever delivers has read the other end under this mutex.
  { const sync::Lock ended(output._delivering); }
  input._peer = nullptr;
}

bool Port::Deliver(Packet& packet) {
  const sync::Lock delivering(_delivering);
  Port* const peer = _peer;
  IElement* const receiver = peer ? peer->_receiver : nullptr;
  if (!receiver) return false;
  if (!WaitFor(*receiver, peer)) {
    if (peer->_gate == Gate::Shut) peer->Count(packet, false);
    return false;
  }
  const bool taken =
      Shielded("ReceivePacket", receiver, [&] { return receiver->ReceivePacket(packet, peer); });
  peer->Count(packet, taken);
  auto& state = HostState(*receiver);
  if (taken) {
    state.pauses.Reset();
  } else {
    const std::chrono::nanoseconds until = Clock::now().time_since_epoch() + state.pauses.Next();
    state.pauseUntil = until.count();
  }
  return taken;
}

void Port::Count(const Packet& packet, bool taken) noexcept {
  const std::uint32_t before = _figures.packets + _figures.refused;
  const bool follows = before != 0 && !_opened.exchange(false);
  if (follows && packet.Sequence() != _next_sequence) ++_figures.gaps;
  _next_sequence = packet.Sequence() + 1;
  if (taken) {
    ++_figures.packets;
    _figures.bytes += packet.Size();
  } else {
    ++_figures.refused;
  }
}

bool Port::WaitFor(IElement& receiver, const Port* peer) {
  const auto until = [&receiver] {
    const std::chrono::nanoseconds sinceBoot(HostState(receiver).pauseUntil);
    return Clock::time_point(std::chrono::duration_cast<Clock::duration>(sinceBoot));
  };
  if (peer->_gate == Gate::Open && until() <= Clock::now()) return true;
  const sync::Lock lock(_mutex);
  while (!_interrupted && _peer == peer && peer->_gate != Gate::Shut) {
    if (peer->_gate == Gate::Held) {
      _changed.Wait(_mutex);
    } else if (Clock::now() < until()) {
      _changed.WaitUntil(_mutex, Clock::WakeAt(until()));
    } else {
      return true;
    }
  }
  return false;
}

void Port::SetGate(Gate gate) {
  if (gate == Gate::Open) _opened = true;
  _gate = gate;
  Port* const output = _peer;
  if (!output) return;
  {
    const sync::Lock lock(output->_mutex);
    output->_changed.NotifyAll();
  }
  // Whoever delivers has looked at the gate under this mutex, and does not wait while it is shut.
  if (gate == Gate::Shut) const sync::Lock ended(output->_delivering);
}

void Port::Interrupt() {
  const sync::Lock lock(_mutex);
  _interrupted = true;
  _changed.NotifyAll();
}

void Port::Resume() {
  const sync::Lock lock(_mutex);
  _interrupted = false;
}

}  // namespace nimbo::stream
