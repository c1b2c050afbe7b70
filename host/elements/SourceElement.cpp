#include "host/elements/SourceElement.h"

#include <charconv>
#include <cstring>

#include "host/base/Console.h"
#include "host/capture/Monotonic.h"
#include "host/stream/PacketPool.h"

namespace nimbo::stream {

bool SourceElement::Start() {
  if (!_source->Start()) return false;
  const std::int64_t began = _source->Began();
  _zero = began != 0 ? capture::ZeroOfStreams(began) : 0;
  return ThreadElement::Start();
}

bool SourceElement::SetBitRate(const char* text) {
  constexpr std::int64_t Least = 10'000, Most = 200'000'000;
  std::int64_t value = 0;
  const char* end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, value);
  if (error != std::errc() || stop != end || value < Least || value > Most) {
    return Refuse("\"", Name(), "\": bit-rate=", text, " must be a number from ", Least, " to ",
                  Most);
  }
  if (GetBitRate() == 0) return Refuse("\"", Name(), "\" does not encode pictures now");
  _source->SetBitRate(value);
  return true;
}

void SourceElement::Run() {
  bool away = false;
  while (!Stopping()) {
    const Held<Packet> packet = _source->Read();
    if (!packet) break;
    if (away != _source->Away()) {
      away = !away;
      SendMessageUp(away ? "source_away" : "source_back", nullptr, nullptr);
    }
    if (auto* own = dynamic_cast<HostPacket*>(packet.get())) own->SetBack(_zero);
    Port* output = OutputFor(*packet);
    if (output && output->Deliver(*packet)) {
      ++_packets;
      _bytes += packet->Size();
    }
  }
  if (Stopping()) return;
  if (_source->Lost()) SendMessageUp("source_lost", nullptr, nullptr);
  SendMessageUp("end_of_stream", nullptr, nullptr);
}

void SourceElement::EndWaits() { _source->Abort(); }

}  // namespace nimbo::stream
