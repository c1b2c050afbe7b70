#include <dlfcn.h>

#include <algorithm>
#include <cctype>

#include "host/base/ClassRegistry.h"
#include "host/base/PluginLoader.h"
#include "host/capture/CaptureSource.h"
#include "host/capture/EsSource.h"
#include "host/stream/Console.h"

namespace nimbo::capture {

namespace {

constexpr char ModuleName[] = "libnimbo-av.so";
constexpr char ModuleFunction[] = "RegisterAvModule";

/// Loads the module at the first call that can. False with the reason in `error`.
bool LoadModule(std::string& error) {
  static bool loaded = false;
  if (loaded) return true;
  const std::string path = base::PluginLoader::OwnFolder() + ModuleName;
  // Like the plug-ins, the module is never unloaded.
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* symbol = library ? dlsym(library, ModuleFunction) : nullptr;
  if (!symbol) {
    const char* reason = dlerror();
    error = reason ? reason : path + " has no " + ModuleFunction;
    return false;
  }
  loaded = true;
  reinterpret_cast<void (*)()>(symbol)();
  return true;
}

bool Serves(const std::string& entry, const std::string& name) {
  if (entry == name) return true;
  const std::size_t size = entry.size();
  return size != 0 && entry.back() == '-' && name.size() > size &&
         name.compare(0, size, entry) == 0 &&
         std::all_of(name.begin() + static_cast<std::ptrdiff_t>(size), name.end(),
                     [](unsigned char digit) { return std::isdigit(digit) != 0; });
}

}  // namespace

CaptureSource::~CaptureSource() = default;

namespace {

/// The classes that the libav* module registers are found before it is loaded.
[[maybe_unused]] const bool Offered = [] {
  for (const char* name : {"AvSource-av-source", "RtmpServer-rtmp-server"}) {
    base::IClass::Globle().Offer(name, LoadAvModule);
  }
  return true;
}();

}  // namespace

CaptureRegistry& CaptureRegistry::Globle() {
  static auto& registry = *[] {
    auto* made = new CaptureRegistry;  // sources may be made while the process ends
    made->Add("es", EsSource::Make);
    return made;
  }();
  return registry;
}

void CaptureRegistry::Add(std::string name, Maker maker) {
  for (auto& [known, old] : _makers) {
    if (known != name) continue;
    old = std::move(maker);
    return;
  }
  _makers.emplace_back(std::move(name), std::move(maker));
}

const CaptureRegistry::Maker* CaptureRegistry::Find(const std::string& name) const {
  for (const auto& [known, maker] : _makers) {
    if (Serves(known, name)) return &maker;
  }
  return nullptr;
}

std::unique_ptr<CaptureSource> CaptureRegistry::Make(const std::string& name,
                                                     const base::AttrSet& options) {
  std::string error;
  const Maker* maker = Find(name);
  if (!maker && LoadModule(error)) maker = Find(name);
  if (maker) return (*maker)(name, options);
  std::string known;
  for (const std::string& one : Names()) known += (known.empty() ? "" : ", ") + one;
  stream::Refuse("There is no capture source \"", name, "\"; there are: ", known,
                 error.empty() ? "" : "; those of the libav* module are missing: ", error);
  return nullptr;
}

std::vector<std::string> CaptureRegistry::Names() const {
  std::vector<std::string> names;
  for (const auto& entry : _makers) names.push_back(entry.first);
  return names;
}

bool LoadAvModule() {
  std::string error;
  if (LoadModule(error)) return true;
  return stream::Refuse("The libav* module cannot be loaded: ", error);
}

}  // namespace nimbo::capture
