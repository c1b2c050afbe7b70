#pragma once

#include <memory>

#include "common/Held.h"
#include "nimbo/stream/packet.h"

namespace nimbo::stream {

class PacketPool;

/// A packet of the reference host: its producer fills it, then shares it.
class NIMBO_API HostPacket final : public Packet {
 public:
  unsigned char* Bytes() noexcept;
  /// Describes the payload: `size` bytes of what was asked for are used.
  void Describe(unsigned int size, bool key, std::int64_t timeStamp, std::uint32_t sequence,
                IMedia* media);
  /// Counts its time from `zero` on; nothing is earlier. It must not have been shared yet.
  void SetBack(std::int64_t zero) noexcept;

 protected:
  void Destroy() noexcept override;

 private:
  friend class PacketPool;
  struct Storage;
  HostPacket();
  ~HostPacket() override;
  std::unique_ptr<Storage> _storage;
};

/// Makes packets and takes their memory back, so that a steady stream allocates nothing per packet.
/// Packets may outlive the pool. [any]
class NIMBO_API PacketPool {
 public:
  PacketPool();
  ~PacketPool();
  /// A packet with room for `capacity` bytes, of which there is no other reference.
  Held<HostPacket> New(unsigned int capacity);

  struct Shared;

 private:
  std::shared_ptr<Shared> _shared;
};

}  // namespace nimbo::stream
