#include "host/capture/av/StreamOutput.h"

#include <algorithm>
#include <cstring>

namespace nimbo::capture::av {

void StreamOutput::Append(ByteView head, ByteView body, bool key, std::int64_t time) {
  const auto size = static_cast<unsigned int>(head.size + body.size);
  HostPacketPtr packet(_pool.New(size));
  if (head.size > 0) std::memcpy(packet->Bytes(), head.data, head.size);
  if (body.size > 0) std::memcpy(packet->Bytes() + head.size, body.data, body.size);
  packet->Describe(size, key, time, 0, _media.get());
  _waiting.push_back(std::move(packet));
}

stream::Packet* StreamOutput::Take(std::int64_t shift) {
  HostPacketPtr packet = std::move(_waiting.front());
  _waiting.pop_front();
  _last = std::max(_last, packet->TimeStamp() + shift);
  packet->Describe(packet->Size(), packet->IsKey(), _last, ++_sequence, packet->Media());
  return packet.release();
}

}  // namespace nimbo::capture::av
