#include "host/elements/SourceElement.h"

namespace nimbo::stream {

bool SourceElement::Start() { return _source->Start() && ThreadElement::Start(); }

void SourceElement::Run() {
  while (!Stopping()) {
    const Held<Packet> packet = _source->Read();
    if (!packet) break;
    Port* output = OutputFor(*packet);
    if (output && output->Deliver(*packet)) {
      ++_packets;
      _bytes += packet->Size();
    }
  }
  if (!Stopping()) SendMessageUp("end_of_stream", nullptr, nullptr);
}

void SourceElement::EndWaits() { _source->Abort(); }

}  // namespace nimbo::stream
