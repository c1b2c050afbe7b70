#include "host/capture/av/StreamOutput.h"

#include <algorithm>
#include <cstring>

namespace nimbo::capture::av {

void StreamOutput::Append(ByteView head, ByteView body, bool key, std::int64_t time) {
  const auto size = static_cast<unsigned int>(head.size + body.size);
  HostPacketPtr packet(_pool.New(size));
  if (head.size > 0) std::memcpy(packet->Bytes(), head.data, head.size);
  if (body.size > 0) std::memcpy(packet->Bytes() + head.size, body.data, body.size);
  _waiting.push_back({std::move(packet), size, key, time});
}

stream::Packet* StreamOutput::Take(std::int64_t shift) {
  Waiting& oldest = _waiting.front();
  _last = std::max(_last, oldest.time + shift);
  oldest.packet->Describe(oldest.size, oldest.key, _last, ++_sequence, _media.get());
  stream::Packet* packet = oldest.packet.release();
  _waiting.pop_front();
  return packet;
}

}  // namespace nimbo::capture::av
