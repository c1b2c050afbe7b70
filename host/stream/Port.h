#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "nimbo/stream/packet.h"
#include "nimbo/stream/packet_ring.h"
#include "nimbo/stream/port.h"
#include "sync/Mutex.h"

namespace nimbo::stream {

class IElement;

/// What was delivered to an input. [any]
struct PortFigures {
  std::atomic<std::uint32_t> packets{0};  ///< taken
  std::atomic<std::uint64_t> bytes{0};    ///< of these packets
  std::atomic<std::uint32_t> refused{0};  ///< answered with a false result
  /// Packets whose number did not follow the one before; what passed while the receiver was closed
  /// is none of them.
  std::atomic<std::uint32_t> gaps{0};
};

/// What becomes of packets that are delivered to an input.
enum class Gate {
  Open,  ///< its element gets them
  Held,  ///< they wait with whoever delivers them, until the gate is open or shut
  Shut,  ///< they are refused, without a pause
};

/// A port of the reference host. Owned by its element (or, a pipeline's, by the pipeline).
///
/// Empty caps stand for any. A port of empty caps tells those of what it is linked to, or, when it
/// is an output that follows an input, of what feeds that input; the same goes for its media.
class NIMBO_API Port : public IPort {
 public:
  /// `owner` is null for a pipeline's port.
  Port(IElement* owner, std::string caps, bool output);
  /// [control] Unlinks.
  ~Port() override;

  bool IsOutput() const override { return _output; }
  bool Linked() const override { return _peer != nullptr; }
  const char* Caps() const override;
  /// Refused, with one yellow line that says why: two ends of the same direction, a linked end,
  /// caps that differ, a port with a ring and anything but a pipeline's port.
  bool Link(IPort& other) override;
  /// [control] Both ends are free afterwards, and no packet is under way between them any more: a
  /// delivery that pauses is given up, one that has reached the element at the other end is waited
  /// for, so that element must have been stopped. Called without a lock that its ReceivePacket
  /// could take, and not from a delivery through this very link.
  void Unlink() EXCLUDES(_delivering, _mutex);

  IElement* Owner() const noexcept { return _owner; }
  Port* Peer() const noexcept { return _peer; }

  /// [control] The element that gets what is delivered to this input: the owner, or, for a
  /// pipeline's port, the element that was named with Feed.
  IElement* Receiver() const noexcept { return _receiver; }
  void Feed(IElement* receiver) noexcept { _receiver = receiver; }
  /// [control] Lets this output carry what comes in through `input`, a port of the same element.
  void Follow(const Port& input) noexcept { _follows = &input; }
  const Port* Followed() const noexcept { return _follows; }

  /// [control] The ring that stands for this output, from which the other end reads by itself;
  /// nothing is delivered then. Null for an output that delivers, and for inputs.
  PacketRing* Ring() const noexcept { return _ring; }
  void SetRing(PacketRing* ring) noexcept { _ring = ring; }

  /// [sending] Hands a packet to the element at the other end. After a false result the packet is
  /// dropped and delivery to that element pauses, for a second at first and longer while it goes on
  /// (Backoff), which Interrupt ends: packets
  /// offered meanwhile wait with the caller, and are not taken when they were interrupted. An
  /// exception that escapes becomes one console line and a false result. False when the packet was
  /// not taken. The element gets its input as `from`, a Port*. The other end and its element stay
  /// until it returns, see Unlink. The input's gate decides first.
  bool Deliver(Packet& packet) EXCLUDES(_delivering, _mutex);
  /// [sending] Counts a packet that was offered to this input: by Deliver, or by an element that
  /// takes packets out of the ring in front of it.
  void Count(const Packet& packet, bool taken) noexcept;
  /// [control] Sets the gate of this input. Once it is shut, no packet is under way to the element
  /// any more: one that has reached it is waited for, as by Unlink.
  void SetGate(Gate gate) EXCLUDES(_delivering, _mutex);
  /// [any] What was delivered to this input since it was made.
  const PortFigures& Figures() const noexcept { return _figures; }
  /// [any] Ends a pause of Deliver; further pauses end at once until Resume. The status machine
  /// calls both for the outputs of every element: Resume before Start, Interrupt before Stop.
  void Interrupt() EXCLUDES(_mutex);
  void Resume() EXCLUDES(_mutex);

  /// [any] What the stream through this port carries; null while unknown. Valid until the producer
  /// sets another one, which it does in Open or Close alone.
  IMedia* Media() const noexcept;
  /// [control] Sets it; the port holds a reference.
  void SetMedia(IMedia* media);

 private:
  /// Waits for a pause, and for a gate that is held. False when the packet cannot go on: after
  /// Interrupt, because this output leads to `peer` no more, or because the gate of that is shut.
  bool WaitFor(IElement& receiver, const Port* peer) REQUIRES(_delivering) EXCLUDES(_mutex);

  IElement* const _owner;
  const std::string _caps;
  const bool _output;
  IElement* _receiver;
  const Port* _follows = nullptr;
  PacketRing* _ring = nullptr;
  std::atomic<Port*> _peer{nullptr};
  std::atomic<IMedia*> _media{nullptr};
  std::atomic<Gate> _gate{Gate::Open};  ///< of an input
  std::atomic<bool> _opened{false};     ///< of an input: it got nothing since
  PortFigures _figures;
  std::uint32_t _next_sequence = 0;  ///< [sending] of this input
  /// Of an output, held by Deliver; taken before all others.
  sync::Mutex _delivering ACQUIRED_BEFORE(_mutex);
  sync::Mutex _mutex;  ///< no other lock is taken under it
  sync::Condition _changed;
  bool _interrupted GUARDED_BY(_mutex) = false;
};

/// [any] True for an address of a live port; how texts that name ports are checked.
NIMBO_API bool IsLivePort(const IPort* port);

/// True when two ends of these capabilities may be linked: equal ones, or one end takes any.
NIMBO_API bool CapsFit(const char* one, const char* other);

}  // namespace nimbo::stream
