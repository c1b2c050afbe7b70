#include "nimbo/base/class.h"

#include <new>

#include "base/reflect/Class.h"
#include "host/base/ClassRegistry.h"
#include "host/base/Console.h"
#include "host/base/ObjectHooks.h"

namespace nimbo::base {

IClass::IClass(const char* name, std::initializer_list<IProperty*> properties)
    : _properties(properties) {
  object_keywords::Name(name);
}

IClass::~IClass() {
  for (const IProperty* property : _properties) delete property;
}

ostream& IClass::operator>>(ostream& out) const {
  std::string text = Name() + ":";
  const char* separator = " ";
  for (const IProperty* property : _properties) {
    text.append(separator).append(property->Name());
    separator = ", ";
  }
  return out << text;
}

void IClass::print(ostream& out, const object& instance) const {
  // The functors read only, but take what the setters take.
  auto& readable = const_cast<object&>(instance);
  std::string text;
  ostream_string lines(text);
  for (const IProperty* property : _properties) {
    if (!property->print) continue;
    lines << property->Name() << "=";
    property->print(lines, readable);
  }
  out << text;
}

ClassRegistry& IClass::Globle() {
  // Never destroyed: objects and threads may outlive every static destructor.
  static auto* const registry = new ClassRegistry;
  return *registry;
}

IClass* IClass::Find(const char* name, bool exact) { return Globle().Find(name, exact); }

IClass* IClass::Register(IClass* cl) {
  if (cl) Globle().Add(*cl);
  return cl;
}

void IClass::Init(const char* module, unsigned int version, const char* vendor, const char* author,
                  const char* description) {
  _module = module;
  _version = version;
  _vendor = vendor;
  _author = author;
  _description = description;
}

object* IClass::FindBeforeNew(const char* name) {
  const auto list = GetObjectHooks().list;
  if (!name || !*name || !list) return nullptr;
  return list().Find<object>(name, true);
}

object* IClass::Complete(object* instance, const char* type, const char* name, const char* cfgs,
                         object* owner) {
  if (!instance) return nullptr;
  instance->_class = this;
  const auto initialize = GetObjectHooks().initialize;
  const bool done = Guarded(Name(), false, [&] {
    if (name && *name) instance->Name(name);
    return !initialize || initialize(*instance, type, name, cfgs, owner);
  });
  if (done) return instance;
  Guarded(Name(), false, [&] {
    instance->Release();
    return true;
  });
  return nullptr;
}

object* IClass::initObject(object* instance, AttrSet& attrs) try {
  object* ready = Complete(instance, attrs.Get("type"), attrs.Get("name"), nullptr, nullptr);
  if (const auto list = GetObjectHooks().list; ready && list) list().Add(*ready);
  return ready;
} catch (const std::bad_alloc&) {
  instance->Release();
  throw;
}

}  // namespace nimbo::base
