#include "host/capture/CaptureRegistry.h"

#include <algorithm>
#include <cctype>

#include "host/base/Console.h"
#include "host/base/Nearest.h"
#include "host/base/PluginLoader.h"
#include "host/capture/EsSource.h"

namespace nimbo::capture {

namespace {

constexpr char ModuleName[] = "libnimbo-av.so";
constexpr char ModuleFunction[] = "RegisterAvModule";

/// Loads the module at the first call that can.
Status LoadModule() {
  static bool loaded = false;
  if (loaded) return {};
  auto symbol = base::PluginLoader::ModuleFunction(ModuleName, ModuleFunction);
  if (!symbol) return symbol.Failure();
  loaded = true;
  reinterpret_cast<void (*)()> (*symbol)();
  return {};
}

/// True for an entry that stands for any number behind it.
bool Numbered(const std::string& entry) { return !entry.empty() && entry.back() == '-'; }

bool Serves(const std::string& entry, const std::string& name) {
  if (entry == name) return true;
  const std::size_t size = entry.size();
  return Numbered(entry) && name.size() > size && name.compare(0, size, entry) == 0 &&
         std::all_of(name.begin() + static_cast<std::ptrdiff_t>(size), name.end(),
                     [](unsigned char digit) { return std::isdigit(digit) != 0; });
}

}  // namespace

CaptureRegistry& CaptureRegistry::Global() {
  static auto& registry = *[] {
    auto* made = new CaptureRegistry;  // sources may be made while the process ends
    made->Add("es", EsSource::Make, "elementary stream files: video, audio, fr, loop, pace, wait");
    return made;
  }();
  return registry;
}

void CaptureRegistry::Add(std::string name, Maker maker, const char* description) {
  Entry added = {std::move(name), std::move(maker), description};
  for (Entry& known : _entries) {
    if (known.name != added.name) continue;
    known = std::move(added);
    return;
  }
  _entries.push_back(std::move(added));
}

const CaptureRegistry::Maker* CaptureRegistry::Find(const std::string& name) const {
  for (const Entry& known : _entries) {
    if (Serves(known.name, name)) return &known.maker;
  }
  return nullptr;
}

std::unique_ptr<CaptureSource> CaptureRegistry::Make(const std::string& name,
                                                     const base::AttrSet& options) {
  const Maker* maker = Find(name);
  Status loaded;
  if (!maker) {
    loaded = LoadModule();
    maker = Find(name);
  }
  if (maker) return (*maker)(name, options);
  Refuse("There is no capture source \"", name, "\"", Suggest(name),
         loaded ? "" : "; those of the libav* module are missing: ", loaded.Why());
  return nullptr;
}

std::vector<CaptureRegistry::Shown> CaptureRegistry::Sources() const {
  std::vector<Shown> sources;
  for (const Entry& known : _entries) {
    sources.push_back({known.name + (Numbered(known.name) ? "N" : ""), known.description});
  }
  return sources;
}

std::string CaptureRegistry::Suggest(const std::string& name) const {
  const std::string digits = name.substr(name.find_last_not_of("0123456789") + 1);
  const std::string number = digits.empty() ? "0" : digits;
  std::vector<std::string> examples;
  for (const Entry& known : _entries) {
    examples.push_back(known.name + (Numbered(known.name) ? number : ""));
  }
  std::string question = base::DidYouMean(name, examples);
  if (!question.empty()) return question;
  std::vector<std::string> names;
  for (const Shown& source : Sources()) names.push_back(source.name);
  return base::Suggest(name, names);
}

bool LoadAvModule() {
  const Status loaded = LoadModule();
  return loaded || Refuse("The libav* module cannot be loaded: ", loaded.Why());
}

}  // namespace nimbo::capture
