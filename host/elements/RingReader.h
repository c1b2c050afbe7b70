#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "common/Held.h"
#include "host/stream/RingBuffer.h"

namespace nimbo::stream {

/// Reads a ring from the packet on that is written next, and counts what the ring overwrote before
/// it was read. Either a thread waits for each packet, or one that is told of them takes what there
/// is.
class RingReader {
 public:
  /// [control]
  void Open(PacketRing& ring, base::object* owner);
  /// [control] Nobody reads any more.
  void Close();
  /// [control] Reads without waiting from now on: `written` is called after each packet. False when
  /// the ring may go meanwhile; then a thread has to wait for it.
  bool Listen(std::function<void()> written);

  /// [any]
  bool IsOpen() const { return _reader != nullptr; }
  /// [reading] The next packet; null when there is none yet. After Listen only.
  RingBuffer::Entry Take();
  /// [reading] The newest key frame that was not taken yet, null when there is none. Those before
  /// it are passed over, `passed` in number. After Listen only.
  RingBuffer::Entry TakeNewestKey(unsigned int& passed);
  /// [reading] The next packet; null after Abort.
  Held<Packet> Wait();
  /// [reading] The ring is gone, and with it what could be waited for.
  bool AtEnd() const;
  /// [any] Ends a wait under way, else the next one.
  void Abort() { _reader->WaitAbort(); }

  /// [any] Figures: packets that were taken, and that were lost before: overwritten, or passed over
  /// by a ring that its reader waits in.
  unsigned int Taken() const { return _taken; }
  unsigned int Missed() const { return _missed; }

 private:
  /// Packets that were passed over since the packet before.
  unsigned int Passed();

  std::shared_ptr<RingBuffer> _ring;  ///< behind the reader, where it can be shared
  std::unique_ptr<PacketRing::Reader> _reader;
  std::uint32_t _next = 0;  ///< position behind the packet that was read last
  std::atomic<unsigned int> _taken{0};
  std::atomic<unsigned int> _missed{0};
};

}  // namespace nimbo::stream
