#include "host/elements/FlowElement.h"

#include "host/base/Console.h"
#include "host/stream/Shielded.h"
#include "host/stream/State.h"
#include "host/stream/Tree.h"

namespace nimbo::stream {

namespace {

constexpr int ThreadPriority = 19;
constexpr int ThreadPolicy = 10;
/// Elements of plug-ins run in these threads, with their TLS libraries. Only what is used of it
/// becomes resident.
constexpr int ThreadStack = 512 * 1024;

}  // namespace

bool FlowElement::Link(IElement& sink) {
  if (!IElement::Link(sink)) return false;
  const auto more = [this] {
    for (const auto& output : HostState(*this).outputs) {
      if (!output->Linked() && !output->Ring()) return true;
    }
    return false;
  };
  while (more()) {
    if (!IElement::Link(sink)) return false;
  }
  return true;
}

void FlowElement::MediaKnown(Port&) {
  for (const auto& output : HostState(*this).outputs) TellMedia(*output);
}

void FlowElement::TellMedia(Port& output) {
  Port* input = output.Peer();
  if (auto* element = input ? dynamic_cast<FlowElement*>(input->Receiver()) : nullptr) {
    element->MediaKnown(*input);
  }
}

bool FlowElement::MediaWillBeKnown(const Port& input) {
  const Port* output = input.Peer();
  const auto* element = output ? dynamic_cast<const FlowElement*>(output->Owner()) : nullptr;
  if (!element) return false;
  const Port* followed = output->Followed();
  return followed ? MediaWillBeKnown(*followed) : element->StatusIsNull();
}

bool FlowElement::SourceCanWait(const Port& input) {
  const Port* output = input.Peer();
  const auto* element = output ? dynamic_cast<const FlowElement*>(output->Owner()) : nullptr;
  return element && element->CanWait(*output);
}

bool FlowElement::SourceBehind(const Port& input) {
  const Port* output = input.Peer();
  const auto* element = output ? dynamic_cast<const FlowElement*>(output->Owner()) : nullptr;
  return element && element->Behind(*output);
}

ThreadElement::ThreadElement(const char* threadName)
    : _thread(threadName, ThreadPriority, ThreadPolicy, ThreadStack) {}

bool ThreadElement::Start() {
  _stopping = false;
  const auto body = [this] {
    Shielded("the thread", this, [this] {
      Run();
      return true;
    });
  };
  if (_thread.Once(body)) return FlowElement::Start();
  _stopping = true;
  return Refuse("\"", PathOf(*this), "\": its thread cannot be started");
}

bool ThreadElement::Stop() {
  _stopping = true;
  EndWaits();
  return FlowElement::Stop();
}

bool ThreadElement::afterStatusDown(Status to) {
  if (to == ready) {
    _thread.Join();
    Ended();
  }
  return FlowElement::afterStatusDown(to);
}

}  // namespace nimbo::stream
