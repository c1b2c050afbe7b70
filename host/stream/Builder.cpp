#include "host/stream/Builder.h"

#include <algorithm>
#include <vector>

#include "base/reflect/Class.h"
#include "host/base/ClassRegistry.h"
#include "host/base/ConfigText.h"
#include "host/base/Console.h"
#include "host/base/Nearest.h"
#include "host/stream/FreeName.h"
#include "host/stream/Shielded.h"
#include "host/stream/State.h"
#include "host/stream/StatusSteps.h"
#include "host/stream/Tree.h"

namespace nimbo::stream {

namespace {

using base::ConfigEntry;

/// Keys of an entry that are not properties of what it creates.
constexpr const char* NameKey = "name";
constexpr const char* LinkKey = "link";
constexpr const char* LinkAll = "all";
constexpr const char* SynchroniserClass = "ele-sync";
constexpr const char* BridgeClass = "BridgeSource";

/// The line about `piece`, which stands at byte `position` of the configuration. Always false.
bool RefusePiece(const std::string& piece, std::size_t position, const std::string& reason) {
  return Refuse("configuration: ", base::QuotePiece(piece, position), ": ", reason);
}
bool RefuseEntry(const ConfigEntry& entry, const std::string& reason) {
  return RefusePiece(entry.text, entry.position, reason);
}
bool RefuseType(const ConfigEntry& entry, const std::string& reason) {
  return RefusePiece(entry.type, entry.typePosition, reason);
}

/// What `step` gives, as true or false. When that is false and nobody has told why, the entry is
/// quoted with `reason`.
template <class Step>
auto Try(const ConfigEntry& entry, const std::string& reason, const Step& step) {
  const Attempt attempt;
  auto made = step();
  if (!made && !attempt.Told()) RefuseEntry(entry, reason);
  return made;
}

bool IsA(const base::IClass& cl, const std::type_info& kind) {
  const std::type_info* type = Framework::Info(cl).type;
  return type && base::DerivesFrom(*type, kind);
}

bool IsElement(const base::IClass& cl) { return IsA(cl, typeid(IElement)); }

bool IsPipeline(const base::IClass& cl) { return IsA(cl, typeid(Pipeline)); }

/// The class that an entry names; null when there is none. See BuildApplication.
base::IClass* FindClass(const std::string& type) {
  auto& registry = base::IClass::Globle();
  base::IClass* exact = base::IClass::Find(type.c_str(), true);
  if (exact && (IsElement(*exact) || IsPipeline(*exact))) return exact;
  base::IClass* element = registry.Find(type.c_str(), false, &typeid(IElement));
  return element ? element : registry.Find(type.c_str(), false, &typeid(Pipeline));
}

/// Why `type` names no class of the kinds that are `wanted`.
std::string WhyNoClass(const std::string& type, const char* wanted,
                       std::initializer_list<const std::type_info*> kinds) {
  auto& registry = base::IClass::Globle();
  if (const base::IClass* other = registry.Find(type.c_str(), false)) {
    return "class " + other->Name() + " is no " + wanted;
  }
  return std::string("there is no ") + wanted + " class like it" + registry.Suggest(type, kinds);
}

/// The settings of an entry that are for the object that it creates. False when one names no
/// property.
bool OwnSettings(const ConfigEntry& entry, const base::IClass& cl, base::AttrSet& own) {
  for (const auto& [key, value] : Framework::Entries(entry.settings)) {
    const auto id = base::Hash(key.c_str());
    if (id == base::Hash(NameKey) || id == base::Hash(LinkKey)) continue;
    if (!Framework::Property(cl, key.c_str()) && id != base::Hash("status")) {
      const base::ConfigSetting* setting = entry.Find(key.c_str());
      std::vector<std::string> names{NameKey, LinkKey, "status"};
      for (const auto* property : Framework::Properties(cl)) names.push_back(property->Name());
      std::string hint = base::DidYouMean(setting->key, names);
      if (hint.empty()) {
        hint = base::Suggest(setting->key, names);
        if (setting != &entry.written.front()) hint += "; a value that holds commas needs braces";
      }
      return RefusePiece(setting->key, setting->position,
                         "class " + cl.Name() + " has no such property" + hint);
    }
    own.Set(key.c_str(), value.c_str());
  }
  return true;
}

bool Configure(const ConfigEntry& entry, Object& object) {
  base::AttrSet own;
  if (!OwnSettings(entry, *Framework::Class(object), own)) return false;
  return Try(entry, "it cannot be configured",
             [&] { return Shielded("configure", &object, [&] { return object.Configure(own); }); });
}

IElement* NewElement(const ConfigEntry& entry, Pipeline& pipeline) {
  IElement* element = Try(entry, "it cannot be created", [&] {
    return IElement::New(entry.type.c_str(), entry.settings.Get(NameKey), &pipeline, nullptr);
  });
  return element && Configure(entry, *element) ? element : nullptr;
}

/// Adds the entry's element behind `last`, unless that is null, and makes it the last one.
bool Append(const ConfigEntry& entry, Pipeline& pipeline, IElement*& last) {
  IElement* element = NewElement(entry, pipeline);
  if (!element) return false;
  const bool linked = Try(entry, "it cannot be linked behind what stands before it", [&] {
    return !last || Shielded("Link", last, [&] { return last->Link(*element); });
  });
  if (linked) last = element;
  return linked;
}

class ApplicationBuilder {
 public:
  explicit ApplicationBuilder(Application& application) : _application(application) {}

  bool Add(const ConfigEntry& entry) {
    base::IClass* cl = FindClass(entry.type);
    if (!cl) {
      return RefuseType(entry, WhyNoClass(entry.type, "element or pipeline",
                                          {&typeid(IElement), &typeid(Pipeline)}));
    }
    const base::ConfigSetting* link = entry.Find(LinkKey);
    if (link && base::Hash(link->value.c_str()) != base::Hash(LinkAll)) {
      return RefusePiece(link->value, link->valuePosition, "\"link\" can only be \"all\"");
    }
    if (!link && IsElement(*cl)) return AddToOpenPipeline(entry);
    _open = nullptr;
    const std::vector<Port*> outputs = link ? Outputs() : std::vector<Port*>();
    if (link && outputs.empty()) {
      return RefuseEntry(entry,
                         "there is no output before it that it could link: put a source in front, "
                         "such as \"shm-source:connect={pv:h264-0}+RingSink\"");
    }
    for (const Port* output : outputs) {
      if (!output->Ring() && HostState(*output->Owner()).live) {
        return RefusePiece(link->value, link->valuePosition,
                           "what \"" + Name(*output) + "\" brings in is live and must pass a " +
                               "ring: put \"+RingSink\" behind it");
      }
    }
    return IsElement(*cl) ? AddLinkedElement(entry, outputs) : AddPipeline(entry, *cl, outputs);
  }

 private:
  bool AddToOpenPipeline(const ConfigEntry& entry) {
    if (!_open) {
      _open = NewPipeline(*base::IClass::Find("Pipeline", true), nullptr);
      _last = nullptr;
    }
    return _open && Append(entry, *_open, _last);
  }

  bool AddPipeline(const ConfigEntry& entry, base::IClass& cl, const std::vector<Port*>& outputs) {
    Pipeline* pipeline = NewPipeline(cl, entry.settings.Get(NameKey));
    if (!pipeline || !Configure(entry, *pipeline)) return false;
    return std::all_of(outputs.begin(), outputs.end(), [&](Port* output) {
      return Try(entry, "it refuses the output of " + Name(*output),
                 [&] { return pipeline->LinkFrom(output); });
    });
  }

  bool AddLinkedElement(const ConfigEntry& entry, const std::vector<Port*>& outputs) {
    Pipeline* pipeline = NewPipeline(*base::IClass::Find("Pipeline", true), nullptr);
    if (!pipeline) return false;
    IElement* synchroniser = Try(entry, "there is no synchroniser for it", [&] {
      return IElement::New(SynchroniserClass, nullptr, pipeline, nullptr);
    });
    IElement* element = synchroniser ? NewElement(entry, *pipeline) : nullptr;
    // A plug-in's element is asked for its inputs when it is linked.
    return element && std::all_of(outputs.begin(), outputs.end(), [&](Port* output) {
             return Try(entry, "it cannot be linked to the output of " + Name(*output), [&] {
               return Shielded("Link", element,
                               [&] { return Bridge(*pipeline, *output, *synchroniser, *element); });
             });
           });
  }

  static bool Bridge(Pipeline& pipeline, Port& output, IElement& synchroniser, IElement& element) {
    const std::string caps = output.Caps();
    IElement* source = IElement::New(BridgeClass, caps.c_str(), &pipeline, caps.c_str());
    return source && !HostState(pipeline).Ports().empty() &&
           HostState(pipeline).Ports().back()->Link(output) && source->Link(synchroniser) &&
           synchroniser.Link(element);
  }

  Pipeline* NewPipeline(base::IClass& cl, const char* name) {
    const auto& pipelines = HostState(_application).pipelines;
    const std::string own =
        name && *name ? name : FreeName(cl, {pipelines.begin(), pipelines.end()});
    base::object* created =
        base::ClassRegistry::Create(cl, cl.Name().c_str(), own.c_str(), nullptr, &_application);
    return base::object::AsType<Pipeline>(created);
  }

  std::vector<Port*> Outputs() {
    std::vector<Port*> outputs;
    for (Pipeline* pipeline : HostState(_application).pipelines) {
      for (IElement* element : HostState(*pipeline).elements) {
        HostState(*element).OfferRings();
        for (const auto& output : HostState(*element).outputs) {
          if (!output->Linked()) outputs.push_back(output.get());
        }
      }
    }
    return outputs;
  }

  static std::string Name(const Port& output) { return PathOf(*output.Owner()); }

  Application& _application;
  Pipeline* _open = nullptr;  ///< takes the next element entry
  IElement* _last = nullptr;
};

}  // namespace

bool BuildPipeline(Pipeline& pipeline, const std::string& text) {
  std::vector<ConfigEntry> entries;
  if (!base::ParseConfiguration(text, entries)) return false;
  IElement* last = nullptr;
  for (const ConfigEntry& entry : entries) {
    if (!base::IClass::Globle().Find(entry.type.c_str(), false, &typeid(IElement))) {
      return RefuseType(entry, WhyNoClass(entry.type, "element", {&typeid(IElement)}));
    }
    if (const base::ConfigSetting* link = entry.Find(LinkKey)) {
      return RefusePiece(link->key, link->position,
                         "elements of one pipeline are linked in their order: leave it out");
    }
    if (!Append(entry, pipeline, last)) return false;
  }
  return true;
}

base::IProperty* NewStatusProperty() {
  const auto name = [](const base::object& instance) {
    return StatusName(dynamic_cast<const Object&>(instance).StatusGet());
  };
  auto* status = new base::TProperty;
  status->base::IProperty::init("status", typeid(std::string), base::PropertyTypeSize<std::string>,
                                "null, ready or play");
  status->get = [name](base::object& instance, void* value) {
    *static_cast<std::string*>(value) = name(instance);
    return true;
  };
  status->print = [name](base::ostream& out, base::object& instance) {
    out << name(instance) << "\n";
  };
  status->getStr = [name](base::object& instance, std::string& text) {
    text = name(instance);
    return true;
  };
  return status;
}

bool BuildApplication(Application& application, const std::string& text) {
  std::vector<ConfigEntry> entries;
  if (!base::ParseConfiguration(text, entries)) return false;
  ApplicationBuilder builder(application);
  for (const ConfigEntry& entry : entries) {
    if (!builder.Add(entry)) return false;
  }
  return true;
}

Application* CreateApplication(const std::string& name, const std::string& text) {
  base::AttrSet attrs = Object::AttrSetInit(
      {{"type", "Application"}, {"name", name.c_str()}, {"serialize", text.c_str()}});
  auto* application = base::IClass::New<Application>(attrs);
  if (!application || application->Configure(attrs)) return application;
  application->Release();
  return nullptr;
}

bool ExtendApplication(Application& application, const std::string& text) {
  const auto& pipelines = HostState(application).pipelines;
  const std::size_t before = pipelines.size();
  bool made = BuildApplication(application, text);
  // Entries are fed by earlier ones, so the last comes first.
  StatusSteps::Children added;
  for (std::size_t i = pipelines.size(); i > before; --i) added.push_back(pipelines[i - 1]);
  for (const auto to : {IStatus::ready, IStatus::play}) {
    made = made && (application.StatusGet() < to || StatusSteps::Raise(added, to));
  }
  while (!made && pipelines.size() > before) pipelines.back()->Release();
  return made;
}

void DestroyElements(Pipeline& pipeline) {
  auto& elements = HostState(pipeline).elements;
  while (!elements.empty()) elements.back()->Release();
}

void DestroyPipelines(Application& application) {
  auto& pipelines = HostState(application).pipelines;
  while (!pipelines.empty()) pipelines.back()->Release();
}

}  // namespace nimbo::stream
