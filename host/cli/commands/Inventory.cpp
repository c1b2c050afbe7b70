#include "host/cli/commands/Inventory.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "host/base/ClassRegistry.h"
#include "host/base/CommandTable.h"
#include "host/base/Console.h"
#include "host/base/Nearest.h"
#include "host/base/PluginLoader.h"
#include "host/capture/CaptureRegistry.h"
#include "host/cli/terminal/KeptOutput.h"
#include "host/cli/terminal/Table.h"
#include "host/stream/Factory.h"
#include "host/stream/State.h"
#include "host/text/Text.h"
#include "nimbo/stream/service.h"

namespace nimbo::cli {

const char* const FunctionPrefix = "fw";

namespace {

using base::IClass;
using text::Json;

Fact TextFact(const char* name, const char* text) {
  return {name, text ? text : "", text ? Json(text) : Json()};
}
Fact TextFact(const char* name, const std::string& text) { return TextFact(name, text.c_str()); }

std::string KindOf(const IClass& cl) {
  struct Kind {
    const std::type_info& type;
    const char* name;
  };
  static const Kind kinds[] = {{typeid(stream::IElement), "element"},
                               {typeid(stream::Pipeline), "pipeline"},
                               {typeid(stream::Application), "application"},
                               {typeid(stream::Service), "service"}};
  const std::type_info* type = Framework::Info(cl).type;
  for (const Kind& kind : kinds) {
    if (type && base::DerivesFrom(*type, kind.type)) return kind.name;
  }
  return "object";
}

std::vector<std::string> KeywordsOf(const IClass& cl) {
  std::vector<std::string> keywords;
  const std::string& name = cl.Name();
  for (std::size_t from = 0; from < name.size();) {
    const auto to = std::min(name.find('-', from), name.size());
    keywords.push_back(name.substr(from, to - from));
    from = to + 1;
  }
  return keywords;
}

std::string VersionText(unsigned int version) {
  return version == 0 ? "" : fmt::format("{:#x}", version);
}

Facts ClassFacts(const IClass& cl) {
  const ClassInfo info = Framework::Info(cl);
  return {TextFact("name", cl.Name()),
          TextFact("kind", KindOf(cl)),
          {"keywords", "", KeywordsOf(cl)},  // people see them in the name
          TextFact("module", info.module),
          TextFact("vendor", info.vendor),
          {"version", VersionText(info.version), info.version},
          TextFact("description", info.description)};
}

std::string AccessOf(const base::IProperty& property) {
  const bool readable = property.get || property.getStr;
  const bool writable = property.set || property.setStr;
  return std::string(readable ? "r" : "-") + (writable ? "w" : "-");
}

std::string TypeName(const std::type_info* type) {
  struct Known {
    const std::type_info& type;
    const char* name;
  };
  static const Known known[] = {{typeid(bool), "bool"},
                                {typeid(int), "int"},
                                {typeid(unsigned int), "unsigned int"},
                                {typeid(long long), "long long"},
                                {typeid(unsigned long long), "unsigned long long"},
                                {typeid(double), "double"},
                                {typeid(const char*), "text"},
                                {typeid(std::string), "text"},
                                {typeid(stream::IPort*), "port"}};
  if (!type) return "?";
  for (const auto& entry : known) {
    if (entry.type == *type) return entry.name;
  }
  return type->name();
}

/// An object that is made to be looked at; an element needs a pipeline to be in. Null, with one
/// line, for a class whose objects cannot be made by name.
class Sample {
 public:
  explicit Sample(IClass& cl) {
    const bool element = KindOf(cl) == "element";
    if (element) _pipeline = Make(*IClass::Find("Pipeline", true), nullptr);
    if (!element || _pipeline) _object = Make(cl, _pipeline.get());
  }
  base::object* Get() const { return _object.get(); }

 private:
  struct Releaser {
    void operator()(base::object* object) const { object->Release(); }
  };
  using Owned = std::unique_ptr<base::object, Releaser>;
  static Owned Make(IClass& cl, base::object* owner) {
    return Owned(
        base::ClassRegistry::Create(cl, cl.Name().c_str(), cl.Name().c_str(), nullptr, owner));
  }

  Owned _pipeline;
  Owned _object;  ///< goes first
};

Facts PropertyFacts(const base::IProperty& property, base::object* sample) {
  std::string value;
  const bool known = sample && property.getStr && Guarded(property.Name(), false, [&] {
                       return property.getStr(*sample, value);
                     });
  const PropertyInfo info = Framework::Info(property);
  return {TextFact("name", property.Name()), TextFact("type", TypeName(info.type)),
          TextFact("access", AccessOf(property)),
          TextFact("default", known ? value.c_str() : nullptr),
          TextFact("description", info.description)};
}

Json ToJson(const Facts& facts) {
  Json object = Json::object();
  for (const Fact& fact : facts) object[fact.name] = fact.json;
  return object;
}

Json ToJson(const std::vector<Facts>& things) {
  Json objects = Json::array();
  for (const Facts& facts : things) objects.push_back(ToJson(facts));
  return objects;
}

/// Things of the same facts in columns, under a line of their names where there are several. What
/// none of them has is left out.
std::string FactsTable(const std::vector<Facts>& things) {
  std::vector<std::vector<std::string>> rows(things.size() + 1, {""});  // each begins with blanks
  const std::size_t columns = things.empty() ? 0 : things.front().size();
  for (std::size_t column = 0; column < columns; ++column) {
    const auto says = [column](const Facts& facts) { return !facts[column].text.empty(); };
    if (std::none_of(things.begin(), things.end(), says)) continue;
    rows.front().emplace_back(things.front()[column].name);
    for (std::size_t i = 0; i < things.size(); ++i) rows[i + 1].push_back(things[i][column].text);
  }
  if (columns < 2) rows.erase(rows.begin());
  return Columns(rows);
}

std::vector<Facts> AllClasses() {
  std::vector<Facts> classes;
  for (const IClass* cl : IClass::Globle().Classes()) classes.push_back(ClassFacts(*cl));
  return classes;
}

std::vector<Facts> AllSources() {
  std::vector<Facts> sources;
  for (const auto& source : capture::CaptureRegistry::Global().Sources()) {
    sources.push_back({TextFact("name", source.name), TextFact("description", source.description)});
  }
  return sources;
}

std::vector<Facts> AllLayouts() {
  std::vector<Facts> layouts;
  for (const auto& [common, layout] : stream::FactoryLayouts()) {
    layouts.push_back({TextFact("name", common), TextFact("layout", layout)});
  }
  return layouts;
}

std::vector<Facts> Names(const std::vector<std::string>& names) {
  std::vector<Facts> things;
  things.reserve(names.size());
  for (const auto& name : names) things.push_back({TextFact("name", name)});
  return things;
}

/// One kind of what there is.
struct Section {
  const char* key;
  std::string title;
  std::vector<Facts> things;
};

std::vector<Section> Inventory() {
  const KeptOutput others;
  capture::LoadAvModule();
  const auto& loader = base::PluginLoader::Global();
  return {{"plugins", "Plug-ins", Names(loader.Libraries())},
          {"classes", "Classes, found by name or by keywords of it", AllClasses()},
          {"sources", "Capture sources, for connect={pv:NAME,OPTION=VALUE,...}", AllSources()},
          {"layouts", "Layouts that plug-ins offer", AllLayouts()},
          {"commands", "Commands of the shell", Names(base::CommandTable::Global().Names())},
          {"functions", "Functions, for the shell's \"call\"", Names(FunctionNames())}};
}

}  // namespace

std::vector<std::string> FunctionNames() {
  return base::PluginLoader::Global().Exports(FunctionPrefix);
}

std::string PortsText(const stream::IElement& element) {
  std::string text;
  const auto add = [&text](const char* direction, const auto& ports) {
    for (const auto& port : ports) {
      const std::string caps = port->Caps();
      text +=
          (text.empty() ? "" : ", ") + std::string(direction) + " " + (caps.empty() ? "any" : caps);
    }
  };
  add("in", HostState(element).inputs);
  add("out", HostState(element).outputs);
  return text;
}

std::string ClassesText() { return FactsTable(AllClasses()); }

ClassView::ClassView(IClass& cl, const std::string& asked) : _facts(ClassFacts(cl)) {
  const KeptOutput others;
  const Sample sample(cl);
  if (const auto* element = dynamic_cast<const stream::IElement*>(sample.Get())) {
    _facts.push_back(TextFact("ports", PortsText(*element)));
  }
  if (cl.ID() != base::Hash(asked.c_str())) {
    base::Arr32 keywords;
    keywords.Add(asked.c_str(), '-');
    std::vector<std::string> also;
    for (const IClass* other : IClass::Globle().Classes()) {
      if (other != &cl && other->Keywords().ContainsAll(keywords)) also.push_back(other->Name());
    }
    _facts.push_back({"also", also.empty() ? "" : text::Joined(also), also});
  }
  for (const auto* property : Framework::Properties(cl)) {
    _properties.push_back(PropertyFacts(*property, sample.Get()));
  }
}

std::string ClassView::Text() const {
  std::vector<std::vector<std::string>> rows;
  for (const Fact& fact : _facts) {
    if (!fact.text.empty()) rows.push_back({fact.name, fact.text});
  }
  return Columns(rows) + (_properties.empty() ? "" : "properties\n" + FactsTable(_properties));
}

std::string ClassView::Json() const {
  text::Json object = ToJson(_facts);
  object["properties"] = ToJson(_properties);
  return text::Dump(object);
}

std::string InventoryText() {
  std::string text;
  for (const Section& section : Inventory()) {
    text += (text.empty() ? "" : "\n") + section.title + "\n" + FactsTable(section.things);
  }
  return text;
}

std::string InventoryJson() {
  Json object = Json::object();
  for (const Section& section : Inventory()) object[section.key] = ToJson(section.things);
  return text::Dump(object);
}

}  // namespace nimbo::cli
