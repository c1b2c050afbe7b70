#include "nimbo/stream/element.h"

#include <algorithm>
#include <cstring>

#include "base/reflect/Class.h"
#include "host/base/ClassRegistry.h"
#include "host/base/Console.h"
#include "host/base/ControlThread.h"
#include "host/stream/ControlQueue.h"
#include "host/stream/FreeName.h"
#include "host/stream/State.h"
#include "host/stream/Tree.h"
#include "nimbo/base/exit_call.h"

namespace nimbo::stream {

namespace {

/// The names that an unnamed element of `pipeline` must not repeat: those of its application.
std::vector<const base::object*> Neighbours(Pipeline* pipeline) {
  std::vector<const base::object*> all;
  if (!pipeline) return all;
  std::vector<Pipeline*> pipelines{pipeline};
  if (Application* application = HostState(*pipeline).application) {
    const auto& list = HostState(*application).pipelines;
    pipelines.assign(list.begin(), list.end());
  }
  for (Pipeline* part : pipelines) {
    const auto& elements = HostState(*part).elements;
    all.insert(all.end(), elements.begin(), elements.end());
  }
  return all;
}

}  // namespace

Port& IElement::State::Add(IElement* owner, const char* caps, bool output) {
  auto port = std::make_unique<Port>(owner, caps ? caps : "", output);
  auto& ports = output ? outputs : inputs;
  const sync::Lock lock(TreeMutex());
  ports.Change().push_back(std::move(port));
  return *ports.back();
}

Port* IElement::State::FreeInput(const char* caps) {
  for (const auto& port : inputs) {
    if (!port->Linked() && CapsFit(port->Caps(), caps)) return port.get();
  }
  return nullptr;
}

Port* IElement::State::FreeOutput() {
  OfferRings();
  for (const auto& port : outputs) {
    if (!port->Linked()) return port.get();
  }
  return nullptr;
}

void IElement::State::SetGates(Gate gate) {
  for (const auto& input : inputs) input->SetGate(gate);
}

void IElement::State::OfferRings() {
  for (PacketRing* each : Rings()) {
    const Port* last = nullptr;
    for (const auto& port : outputs) {
      if (port->Ring() == each && (!last || last->Linked())) last = port.get();
    }
    if (!last->Linked()) continue;
    Port& added = Add(last->Owner(), "", true);
    added.SetRing(each);
    if (last->Followed()) added.Follow(*last->Followed());
  }
}

std::vector<PacketRing*> IElement::State::Rings() const {
  std::vector<PacketRing*> rings;
  for (const auto& port : outputs) {
    PacketRing* const behind = port->Ring();
    if (behind && std::find(rings.begin(), rings.end(), behind) == rings.end()) {
      rings.push_back(behind);
    }
  }
  return rings;
}

IElement::IElement() : _state(std::make_unique<State>()) {}

void IElement::State::Leave(IElement& self) {
  if (self._pipeline) HostState(*self._pipeline).Detach(self);
  for (const auto& input : inputs) input->Unlink();
}

IElement::~IElement() {
  _state->Leave(*this);
  base::Pin::Retire(*this);
}

void IElement::Release() {
  StatusTakeDown();
  _state->Leave(*this);
  Object::Release();
}

IElement* IElement::New(const char* type, const char* name, Pipeline* pipeline, const char* cfg) {
  base::AssertControlThread();
  base::IClass* cl = type ? base::IClass::Globle().Find(type, false, &typeid(IElement)) : nullptr;
  if (!cl) {
    Explain("There is no element class \"", type, "\"",
            base::IClass::Globle().Suggest(type ? type : "", {&typeid(IElement)}));
    return nullptr;
  }
  const std::string own = name && *name ? name : FreeName(*cl, Neighbours(pipeline));
  base::object* created = base::ClassRegistry::Create(*cl, type, own.c_str(), cfg, pipeline);
  auto* element = base::object::AsType<IElement>(created);
  if (!element && created) created->Release();
  // An override of Initialize that kept the base's from being called leaves this undone.
  if (element && pipeline && !element->_pipeline) HostState(*pipeline).Attach(*element);
  return element;
}

bool IElement::Initialize(const char* type, const char* name, const char* cfgs,
                          base::object* owner) {
  auto* pipeline = base::object::AsType<Pipeline>(owner);
  if (pipeline && !_pipeline) HostState(*pipeline).Attach(*this);
  return Object::Initialize(type, name, cfgs, owner);
}

IPort* IElement::PortAdd(const char* caps, const char* direction) {
  base::AssertControlThread();
  const bool output = direction && std::strcmp(direction, "out") == 0;
  if (!output && (!direction || std::strcmp(direction, "in") != 0)) {
    Explain("A port's direction is \"in\" or \"out\", not \"", direction, "\"");
    return nullptr;
  }
  return &_state->Add(this, caps, output);
}

bool IElement::Link(IElement& sink) {
  base::AssertControlThread();
  Port* output = _state->FreeOutput();
  if (!output) {
    Explain("\"", PathOf(*this), "\" has no free output");
    return false;
  }
  IPort* input = sink._state->FreeInput(output->Caps());
  if (!input) input = sink.PortAdd(output->Caps(), "in");
  if (!input) {
    Explain("\"", PathOf(sink), "\" has no free input for \"", output->Caps(), "\"");
    return false;
  }
  return output->Link(*input);
}

bool IElement::Linked(const IElement& sink) const {
  const auto leads = [&sink](const auto& port) {
    return port->Linked() && port->Peer()->Owner() == &sink;
  };
  return std::any_of(_state->outputs.begin(), _state->outputs.end(), leads);
}

bool IElement::ReceivePacket(Packet&, void*) { return false; }

bool IElement::StatusUp(Status to) {
  if (to != ready) {
    for (const auto& port : _state->outputs) port->Resume();
    return Object::StatusUp(to);
  }
  // What leads to it may play already, and an element makes in Open what ReceivePacket uses.
  _state->SetGates(Gate::Shut);
  _state->SetGates(Gate::Held);
  base::ExitCall shut([this] { _state->SetGates(Gate::Shut); });
  if (!Object::StatusUp(to)) return false;
  shut.Clear();
  _state->pauseUntil = 0;
  _state->SetGates(Gate::Open);
  return true;
}

bool IElement::StatusDown(Status to) {
  if (to == ready) {
    for (const auto& port : _state->outputs) port->Interrupt();
  } else {
    _state->SetGates(Gate::Shut);
  }
  return Object::StatusDown(to);
}

bool IElement::SendMessageUp(const char* name, const char* text, base::AttrSet* attrs) {
  if (!name) return false;
  Message message;
  message.path = PathOf(*this);
  message.element = Name();
  message.name = name;
  if (text) message.text = text;
  if (attrs) message.attrs = *attrs;

  // The lists are shared, so that the message finds them when their owners are gone.
  std::shared_ptr<MessageListeners> pipeline;
  std::shared_ptr<MessageListeners> application;
  {
    const sync::Lock lock(TreeMutex());
    if (_pipeline) {
      pipeline = HostState(*_pipeline).listeners;
      if (Application* above = HostState(*_pipeline).application) {
        application = HostState(*above).listeners;
      }
    }
  }
  ControlQueue::Global().Post([pipeline, application, message = std::move(message)] {
    if (pipeline) pipeline->Tell(message);
    if (application) application->Tell(message);
    MessageListeners::Global().Tell(message);
  });
  return true;
}

}  // namespace nimbo::stream
