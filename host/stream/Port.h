#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>

#include "nimbo/stream/packet.h"
#include "nimbo/stream/port.h"

namespace nimbo::stream {

class IElement;

/// A port of the reference host. Owned by its element (or, a pipeline's, by the pipeline).
class NIMBO_API Port : public IPort {
 public:
  /// `owner` is null for a pipeline's port.
  Port(IElement* owner, std::string caps, bool output);
  /// [control] Unlinks.
  ~Port() override;

  bool IsOutput() const override { return _output; }
  bool Linked() const override { return _peer != nullptr; }
  const char* Caps() const override { return _caps.c_str(); }
  bool Link(IPort& other) override;
  /// [control] Both ends are free afterwards. No packet may be under way.
  void Unlink();

  IElement* Owner() const noexcept { return _owner; }
  Port* Peer() const noexcept { return _peer; }

  /// [sending] Hands a packet to the element at the other end. After a false result the packet is
  /// dropped and delivery pauses for one second, which Interrupt ends: packets offered meanwhile
  /// wait with the caller. An exception that escapes becomes one console line and a false result.
  /// False when the packet was not taken.
  bool Deliver(Packet& packet);
  /// [any] Ends a pause of Deliver; further pauses end at once until Resume.
  void Interrupt();
  void Resume();

  /// [any] What the stream through this output carries; null while unknown.
  IMedia* Media() const noexcept { return _media.load(); }
  /// [control] Sets it; the port holds a reference.
  void SetMedia(IMedia* media);

 private:
  IElement* _owner;
  std::string _caps;
  bool _output;
  Port* _peer = nullptr;
  std::atomic<IMedia*> _media{nullptr};
  std::mutex _mutex;
  std::condition_variable _changed;
  bool _interrupted = false;
};

/// [any] True for an address of a live port; how texts that name ports are checked.
NIMBO_API bool IsLivePort(const IPort* port);

}  // namespace nimbo::stream
