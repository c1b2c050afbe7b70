#include "nimbo/stream/media.h"
#include "nimbo/stream/packet.h"
#include "nimbo/stream/packet_ring.h"

namespace nimbo::stream {

// The tables and type information of the interfaces live here, once for framework and plug-ins.

IMedia::~IMedia() = default;

Packet::~Packet() {
  if (_media) _media->Release();
}

PacketRing::~PacketRing() = default;

}  // namespace nimbo::stream
