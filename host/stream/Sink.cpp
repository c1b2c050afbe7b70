#include "nimbo/stream/sink.h"

#include <cstring>

#include "host/stream/State.h"

namespace nimbo::stream {

ISink::ISink() = default;
ISink::~ISink() = default;

IPort* ISink::CreatePort(const char* caps, const char* direction) {
  return direction && std::strcmp(direction, "in") == 0 ? PortAdd(caps, direction) : nullptr;
}

IPort* ISink::CreatePortIn(const char* caps, int index) {
  const auto& inputs = HostState(*this).inputs;
  if (index < 0) return nullptr;
  const auto place = static_cast<std::size_t>(index);
  if (place < inputs.size()) return inputs[place].get();
  return place == inputs.size() ? PortAdd(caps, "in") : nullptr;
}

bool ISink::LinkFrom(IElement* source) { return source && source->Link(*this); }

bool ISink::LinkFrom(IPort* source) {
  if (!source || !source->IsOutput()) return false;
  IPort* input = HostState(*this).FreeInput(source->Caps());
  if (!input) input = PortAdd(source->Caps(), "in");
  return input && source->Link(*input);
}

bool ISink::ProcessPacket() { return false; }

IPort* ISink::SelectPortIn(IMedia* media) {
  if (!media) return nullptr;
  for (const auto& input : HostState(*this).inputs) {
    if (CapsFit(input->Caps(), media->Codec())) return input.get();
  }
  return nullptr;
}

unsigned int ISink::InputMode() const { return 0; }
bool ISink::ConsultInputMode(unsigned int mode) { return mode == InputMode(); }
bool ISink::ConsultBegin() { return true; }
bool ISink::Consult() { return true; }
bool ISink::ConsultEnd() { return true; }
bool ISink::CheckInputStatusIsLeftFromPlay() { return !StatusIsPlay(); }

}  // namespace nimbo::stream
