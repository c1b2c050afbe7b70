#include "host/stream/Tree.h"

#include <cstdlib>

#include "base/reflect/Class.h"
#include "host/base/ControlThread.h"
#include "host/base/Nearest.h"
#include "host/stream/State.h"
#include "host/stream/StatusSteps.h"
#include "nimbo/stream/factory.h"

namespace nimbo::stream {

namespace {

constexpr char Separator = '/';
constexpr int AddressBase = 16;

/// A pinned object of the tree and the path that it was found under.
struct Entry {
  std::string path;
  base::Pin pin;
};

void PinElements(Pipeline& pipeline, const std::string& prefix, std::vector<Entry>& entries) {
  for (IElement* element : HostState(pipeline).elements) {
    entries.push_back({prefix + element->Name(), base::Pin(*element)});
  }
}

/// Everything below `root`, which is pinned: a container's elements behind the container.
void PinChildren(base::object& root, std::vector<Entry>& entries) {
  const std::string prefix = root.Name().empty() ? std::string() : root.Name() + Separator;
  const sync::Lock lock(TreeMutex());
  if (auto* application = dynamic_cast<Application*>(&root)) {
    for (Pipeline* pipeline : HostState(*application).pipelines) {
      entries.push_back({prefix + pipeline->Name(), base::Pin(*pipeline)});
      PinElements(*pipeline, prefix, entries);
    }
  } else if (auto* pipeline = dynamic_cast<Pipeline*>(&root)) {
    PinElements(*pipeline, prefix, entries);
  }
}

/// The whole tree, in the order of ListObjects.
std::vector<Entry> PinTree() {
  std::vector<Entry> entries;
  for (base::Pin& root : base::Pin::All(Factory::Globle())) {
    base::object& object = *root;
    entries.push_back({object.Name(), std::move(root)});
    PinChildren(object, entries);
  }
  return entries;
}

/// The port at the end of `path` ("cam/RingSink.out0"). Never null.
Result<Port*> FindPortAt(const std::string& path) {
  const auto dot = path.rfind('.');
  if (dot == std::string::npos) {
    return Status::Failed("a port's name is missing behind it, such as \".out\"");
  }
  auto* element = dynamic_cast<IElement*>(FindObject(path.substr(0, dot)));
  if (!element) {
    std::vector<std::string> paths;
    for (const LiveObject& live : ListObjects()) paths.push_back(live.path);
    return Status::Failed("there is no such element" + base::Suggest(path.substr(0, dot), paths));
  }
  const std::string name = path.substr(dot + 1);
  const bool output = name.compare(0, 3, "out") == 0;
  const std::string number = name.substr(output ? 3 : name.compare(0, 2, "in") == 0 ? 2 : 0);
  if (number == name || number.find_first_not_of("0123456789") != std::string::npos) {
    return Status::Failed("ports are called out, out0, out1, in, in0, in1 and so on");
  }
  auto& state = HostState(*element);
  const auto& ports = output ? state.outputs : state.inputs;
  Port* port = nullptr;
  if (number.empty()) {
    port = output ? state.FreeOutput() : state.FreeInput(nullptr);
  } else if (const auto index = std::strtoul(number.c_str(), nullptr, 10); index < ports.size()) {
    port = ports[index].get();
  }
  if (port) return port;
  return Status::Failed("that element has no such free port; it has " +
                        std::to_string(ports.size()) + (output ? " outputs" : " inputs"));
}

}  // namespace

std::string PathOf(const Object& object) {
  const sync::Lock lock(TreeMutex());
  const base::object* owner = nullptr;
  const auto* pipeline = dynamic_cast<const Pipeline*>(&object);
  if (const auto* element = dynamic_cast<const IElement*>(&object)) {
    owner = pipeline = Framework::Pipeline(*element);
  }
  if (pipeline && HostState(*pipeline).application) owner = HostState(*pipeline).application;
  if (!owner || owner->Name().empty()) return object.Name();
  return owner->Name() + Separator + object.Name();
}

std::vector<LiveObject> ListObjects() {
  std::vector<LiveObject> list;
  for (const Entry& entry : PinTree()) {
    const auto* object = dynamic_cast<const Object*>(&*entry.pin);
    const base::IClass* cl = Framework::Class(*entry.pin);
    list.push_back({entry.path, entry.pin->Name(), cl ? cl->Name() : std::string(),
                    object ? StatusName(object->StatusGet()) : std::string()});
  }
  return list;
}

std::optional<base::Pin> PinObject(const std::string& path) {
  const auto id = base::Hash(path.c_str());
  std::optional<base::Pin> pipeline;
  for (Entry& entry : PinTree()) {
    if (base::Hash(entry.path.c_str()) != id) continue;
    if (!dynamic_cast<Pipeline*>(&*entry.pin)) return std::move(entry.pin);
    if (!pipeline) pipeline.emplace(std::move(entry.pin));
  }
  return pipeline;
}

Object* FindObject(const std::string& path) {
  const auto pin = PinObject(path);
  return pin ? dynamic_cast<Object*>(&**pin) : nullptr;
}

std::string PortAddress(const IPort* port) {
  std::string text;
  base::ConvertToImpl(static_cast<const void*>(port), text);
  return text;
}

Result<IPort*> FindPort(const std::string& text) {
  base::AssertControlThread();
  if (text.find_first_of("/.") != std::string::npos) {
    auto found = FindPortAt(text);
    return found ? Result<IPort*>(*found) : found.Failure();
  }
  char* end = nullptr;
  auto* port = reinterpret_cast<IPort*>(std::strtoul(text.c_str(), &end, AddressBase));
  if (!text.empty() && !*end && (!port || IsLivePort(port))) return port;
  return Status::Failed(
      "it is neither a port path such as cam/RingSink.out nor the address of a port");
}

void ReleaseAll() {
  base::AssertControlThread();
  for (;;) {
    base::object* oldest = nullptr;
    {
      const auto pins = base::Pin::All(Factory::Globle());
      if (pins.empty()) return;
      oldest = &*pins.front();
    }
    oldest->Release();
  }
}

}  // namespace nimbo::stream
