#include "nimbo/stream/pipeline.h"

#include <algorithm>
#include <unordered_set>

#include "base/reflect/Class.h"
#include "base/reflect/TClass.h"
#include "host/base/Console.h"
#include "host/base/ControlThread.h"
#include "host/stream/Builder.h"
#include "host/stream/Shielded.h"
#include "host/stream/State.h"
#include "host/stream/StatusSteps.h"
#include "host/stream/Tree.h"

namespace nimbo::stream {

namespace {

[[maybe_unused]] base::IClass* const Registered =
    RegisterContainer<Pipeline>("Pipeline", "elements that deliver to each other");

StatusSteps::Children SinksFirst(const auto& state) {
  const auto elements = state.SinksFirst();
  return {elements.begin(), elements.end()};
}

/// Puts `element` into `order` behind all those of `pipeline` that it delivers to.
void Visit(const Pipeline& pipeline, IElement* element, std::unordered_set<IElement*>& seen,
           std::vector<IElement*>& order) {
  if (Framework::Pipeline(*element) != &pipeline || !seen.insert(element).second) return;
  for (const auto& output : HostState(*element).outputs) {
    const Port* peer = output->Peer();
    if (peer && peer->Receiver()) Visit(pipeline, peer->Receiver(), seen, order);
  }
  order.push_back(element);
}

}  // namespace

std::vector<IElement*> Pipeline::State::SinksFirst() const {
  std::unordered_set<IElement*> seen;
  std::vector<IElement*> order;
  for (IElement* element : elements) Visit(self, element, seen, order);
  return order;
}

bool Pipeline::State::Settle() {
  const Status status = self.StatusGet();
  bool ok = true;
  for (IElement* element : SinksFirst()) {
    if (element->StatusGet() < status) ok = self.ActiveElement(element) && ok;
  }
  return ok;
}

Port& Pipeline::State::AddPort(IElement& receiver, const char* caps) {
  auto port = std::make_unique<Port>(nullptr, caps ? caps : "", false);
  port->Feed(&receiver);
  self._ports.push_back(port.get());
  ports.push_back(std::move(port));
  return *ports.back();
}

void Pipeline::State::Attach(IElement& element) {
  const sync::Lock lock(TreeMutex());
  elements.Change().push_back(&element);
  element._pipeline = &self;
}

void Pipeline::State::Detach(IElement& element) {
  {
    const sync::Lock lock(TreeMutex());
    auto& list = elements.Change();
    list.erase(std::remove(list.begin(), list.end(), &element), list.end());
    element._pipeline = nullptr;
  }
  const auto feeds = [&element](const auto& port) { return port->Receiver() == &element; };
  for (const auto& port : ports) {
    if (!feeds(port)) continue;
    self._ports.erase(std::remove(self._ports.begin(), self._ports.end(), port.get()),
                      self._ports.end());
  }
  // Not under the lock above: each waits for the delivery under way through it.
  ports.erase(std::remove_if(ports.begin(), ports.end(), feeds), ports.end());
}

Pipeline::Pipeline() : _state(std::make_unique<State>(*this)) {}

Pipeline::~Pipeline() {
  if (_state->application) HostState(*_state->application).Detach(*this);
  base::Pin::Retire(*this);
  StatusTakeDown();
  DestroyElements(*this);
}

void Pipeline::Release() {
  StatusTakeDown();
  if (_state->application) HostState(*_state->application).Detach(*this);
  Object::Release();
}

bool Pipeline::Initialize(const char* type, const char* name, const char* cfgs,
                          base::object* owner) {
  auto* application = base::object::AsType<Application>(owner);
  if (application && !_state->application) HostState(*application).Attach(*this);
  return Object::Initialize(type, name, cfgs, owner);
}

bool Pipeline::beforeLinkFrom(IPort*) { return true; }

bool Pipeline::LinkFrom(IPort* port) {
  base::AssertControlThread();
  if (!Shielded("beforeLinkFrom", this, [&] { return beforeLinkFrom(port); })) return false;
  if (port && !port->Linked()) {
    const auto free = std::find_if(_state->ports.begin(), _state->ports.end(), [port](auto& own) {
      return !own->Linked() && CapsFit(own->Caps(), port->Caps());
    });
    if (free == _state->ports.end()) {
      Explain("\"", PathOf(*this), "\" has no free port for \"", port->Caps(), "\"");
      return false;
    }
    if (!(*free)->Link(*port)) return false;
  }
  return port && _state->Settle();
}

bool Pipeline::ActiveElement(IElement* element) {
  return element && element->StatusChange(StatusGet());
}

bool Pipeline::SetStr(const char* key, const char* value) {
  return Object::SetStr(key, value) && _state->Settle();
}

bool Pipeline::SetSerialize(std::string text) {
  base::AssertControlThread();
  if (!StatusIsNull()) {
    return Refuse("\"", PathOf(*this), "\" is open: set its status to null before \"serialize\"");
  }
  DestroyElements(*this);
  if (!BuildPipeline(*this, text)) {
    DestroyElements(*this);
    return false;
  }
  const sync::Lock lock(TreeMutex());
  _state->serialize = std::move(text);
  return true;
}

std::string Pipeline::GetSerialize() const {
  const sync::Lock lock(TreeMutex());
  return _state->serialize;
}

bool Pipeline::StatusUp(Status to) {
  const auto children = SinksFirst(*_state);
  if (!StatusSteps::Raise(children, to)) return false;
  if (Object::StatusUp(to)) return true;
  const Status from = to == play ? ready : null;
  StatusSteps::Lower(children, from);
  StatusSteps::Lowered(children, from);
  return false;
}

bool Pipeline::StatusDown(Status to) {
  const bool lowered = StatusSteps::Lower(SinksFirst(*_state), to);
  return Object::StatusDown(to) && lowered;
}

bool Pipeline::afterStatusDown(Status to) {
  StatusSteps::Lowered(SinksFirst(*_state), to);
  return Object::afterStatusDown(to);
}

}  // namespace nimbo::stream
