#include "nimbo/stream/application.h"

#include <algorithm>

#include "host/base/Console.h"
#include "host/base/ControlThread.h"
#include "host/base/Pin.h"
#include "host/stream/Builder.h"
#include "host/stream/State.h"
#include "host/stream/StatusSteps.h"
#include "host/stream/Tree.h"

namespace nimbo::stream {

namespace {

[[maybe_unused]] base::IClass* const Registered =
    RegisterContainer<Application>("Application", "pipelines that start and stop together");

/// Later entries of a configuration are fed by earlier ones, so they come first here.
StatusSteps::Children SinksFirst(const auto& state) {
  return {state.pipelines.rbegin(), state.pipelines.rend()};
}

}  // namespace

void Application::State::Attach(Pipeline& pipeline) {
  const sync::Lock lock(TreeMutex());
  pipelines.Change().push_back(&pipeline);
  HostState(pipeline).application = &self;
}

void Application::State::Detach(Pipeline& pipeline) {
  const sync::Lock lock(TreeMutex());
  auto& list = pipelines.Change();
  list.erase(std::remove(list.begin(), list.end(), &pipeline), list.end());
  HostState(pipeline).application = nullptr;
}

Application::Application() : _state(std::make_unique<State>(*this)) {}

Application::~Application() {
  base::Pin::Retire(*this);
  StatusTakeDown();
  DestroyPipelines(*this);
}

bool Application::OutputList(std::vector<PacketRing*>& list, bool readyOnly) {
  for (Pipeline* pipeline : _state->pipelines) {
    for (IElement* element : HostState(*pipeline).elements) {
      if (readyOnly && element->StatusIsNull()) continue;
      const auto rings = HostState(*element).Rings();
      list.insert(list.end(), rings.begin(), rings.end());
    }
  }
  return true;
}

bool Application::SetSerialize(std::string text) {
  base::AssertControlThread();
  if (!StatusIsNull()) {
    return Refuse("\"", PathOf(*this), "\" is open: set its status to null before \"serialize\"");
  }
  DestroyPipelines(*this);
  if (!BuildApplication(*this, text)) {
    DestroyPipelines(*this);
    return false;
  }
  const sync::Lock lock(TreeMutex());
  _state->serialize = std::move(text);
  return true;
}

std::string Application::GetSerialize() const {
  const sync::Lock lock(TreeMutex());
  return _state->serialize;
}

bool Application::StatusUp(Status to) {
  const auto children = SinksFirst(*_state);
  if (!StatusSteps::Raise(children, to)) return false;
  return Object::StatusUp(to);
}

bool Application::StatusDown(Status to) {
  const bool lowered = StatusSteps::Lower(SinksFirst(*_state), to);
  return Object::StatusDown(to) && lowered;
}

bool Application::afterStatusDown(Status to) {
  StatusSteps::Lowered(SinksFirst(*_state), to);
  return Object::afterStatusDown(to);
}

}  // namespace nimbo::stream
