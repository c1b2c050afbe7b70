#include "host/capture/av/StreamOutput.h"

#include <algorithm>

namespace nimbo::capture::av {

void StreamOutput::Append(ByteSpan head, ByteSpan body, bool key, std::int64_t time) {
  const auto size = static_cast<unsigned int>(head.size() + body.size());
  Held<stream::HostPacket> packet = _pool.New(size);
  std::ranges::copy(body, std::ranges::copy(head, packet->Bytes()).out);
  packet->Describe(size, key, time, 0, _media.get());
  _waiting.push_back(std::move(packet));
}

Held<stream::Packet> StreamOutput::Take(std::int64_t shift) {
  Held<stream::HostPacket> packet = std::move(_waiting.front());
  _waiting.pop_front();
  _last = std::max(_last, packet->TimeStamp() + shift);
  packet->Describe(packet->Size(), packet->IsKey(), _last, ++_sequence, packet->Media());
  return packet;
}

}  // namespace nimbo::capture::av
