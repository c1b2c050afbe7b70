#include "host/base/ClassRegistry.h"

#include <cxxabi.h>

#include <algorithm>

#include "host/base/Console.h"
#include "host/base/Framework.h"
#include "host/base/Nearest.h"

namespace nimbo::base {

namespace {

/// Adds what a class called `name` can be found by: keywords that stand together in it, joined.
void AddSpellings(const std::string& name, std::vector<std::string>& spellings) {
  for (std::size_t from = 0; from != std::string::npos; from = name.find('-', from)) {
    if (from > 0) ++from;
    for (std::size_t to = from; to != std::string::npos;) {
      to = name.find('-', to + 1);
      spellings.push_back(name.substr(from, to == std::string::npos ? to : to - from));
    }
  }
}

}  // namespace

bool DerivesFrom(const std::type_info& type, const std::type_info& base) {
  // Compared by value: each module may hold its own copy of a class's type information.
  if (type == base) return true;
  if (const auto* single = dynamic_cast<const abi::__si_class_type_info*>(&type)) {
    return DerivesFrom(*single->__base_type, base);
  }
  if (const auto* several = dynamic_cast<const abi::__vmi_class_type_info*>(&type)) {
    for (unsigned index = 0; index < several->__base_count; ++index) {
      if (DerivesFrom(*several->__base_info[index].__base_type, base)) return true;
    }
  }
  return false;
}

IClass* ClassRegistry::Find(const char* name, bool exact, const std::type_info* kind) {
  const std::uint32_t id = Hash(name);
  Arr32 keywords;
  keywords.Add(name, '-');
  if (keywords.Size() == 0) return nullptr;
  IClass* found = FindRegistered(id, keywords, exact, kind);
  // A registration asks whether its own name is in use; that must load nothing.
  if (found || exact || !LoadOffered(id, keywords)) return found;
  return FindRegistered(id, keywords, exact, kind);
}

IClass* ClassRegistry::FindRegistered(std::uint32_t id, const Arr32& keywords, bool exact,
                                      const std::type_info* kind) {
  const auto isKind = [kind](const IClass* cl) {
    const std::type_info* type = Framework::Info(*cl).type;
    return !kind || (type && DerivesFrom(*type, *kind));
  };
  const sync::Lock lock(_mutex);
  for (IClass* cl : _classes) {
    if (cl->ID() == id && isKind(cl)) return cl;
  }
  if (exact) return nullptr;
  for (IClass* cl : _classes) {
    if (cl->Keywords().ContainsAll(keywords) && isKind(cl)) return cl;
  }
  return nullptr;
}

bool ClassRegistry::LoadOffered(std::uint32_t id, const Arr32& keywords) {
  bool (*load)() = nullptr;
  {
    const sync::Lock lock(_mutex);
    for (const Offered& offered : _offered) {
      if (Hash(offered.name.c_str()) == id || offered.keywords.ContainsAll(keywords))
        load = offered.load;
    }
    // An offer is taken once: a module that cannot be loaded says so once.
    const auto taken = [load](const Offered& offered) { return offered.load == load; };
    _offered.erase(std::remove_if(_offered.begin(), _offered.end(), taken), _offered.end());
  }
  return load && load();
}

void ClassRegistry::Offer(const char* name, const std::type_info& kind, bool (*load)()) {
  Offered offered = {name, {}, &kind, load};
  offered.keywords.Add(name, '-');
  const sync::Lock lock(_mutex);
  _offered.push_back(std::move(offered));
}

void ClassRegistry::Add(IClass& cl) {
  const sync::Lock lock(_mutex);
  _classes.push_back(&cl);
}

std::vector<IClass*> ClassRegistry::Classes() {
  const sync::Lock lock(_mutex);
  return _classes;
}

std::string ClassRegistry::Suggest(const std::string& name,
                                   std::initializer_list<const std::type_info*> kinds) {
  std::vector<std::string> names;
  const auto add = [&](const std::string& known, const std::type_info* type) {
    const auto fits = [type](const auto* kind) { return type && DerivesFrom(*type, *kind); };
    if (kinds.size() != 0 && std::none_of(kinds.begin(), kinds.end(), fits)) return;
    if (std::find(names.begin(), names.end(), known) == names.end()) names.push_back(known);
  };
  {
    const sync::Lock lock(_mutex);
    for (const IClass* cl : _classes) add(cl->Name(), Framework::Info(*cl).type);
    for (const Offered& offered : _offered) add(offered.name, offered.kind);
  }
  std::vector<std::string> spellings;
  for (const std::string& known : names) AddSpellings(known, spellings);
  const std::string question = DidYouMean(name, spellings);
  return question.empty() ? base::Suggest(name, names) : question;
}

IClass* Describe(IClass* cl, const char* module, const char* description) {
  if (cl) cl->Init(module, 0, nullptr, nullptr, description);
  return cl;
}

object* ClassRegistry::Create(IClass& cl, const char* type, const char* name, const char* cfgs,
                              object* owner) {
  if (!cl._creator || !cl._signature || *cl._signature != typeid(void (*)())) {
    Refuse(cl.Name(), ": objects of this class cannot be made by name");
    return nullptr;
  }
  object* instance =
      Guarded(cl.Name(), static_cast<object*>(nullptr), [&cl] { return cl._creator(nullptr); });
  return cl.Complete(instance, type, name, cfgs, owner);
}

}  // namespace nimbo::base
