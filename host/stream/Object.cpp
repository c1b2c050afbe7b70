#include "nimbo/stream/object.h"

#include "base/reflect/Class.h"
#include "host/base/ClassRegistry.h"
#include "host/base/ConfigText.h"
#include "host/base/Console.h"
#include "host/base/ObjectHooks.h"
#include "host/stream/Settings.h"
#include "host/stream/Shielded.h"
#include "host/stream/State.h"
#include "host/stream/StatusSteps.h"
#include "host/stream/Tree.h"
#include "nimbo/stream/factory.h"
#include "nimbo/stream/port.h"

namespace nimbo::stream {

namespace {

const std::uint32_t StatusKey = base::Hash("status");
const std::uint32_t NameKey = base::Hash("name");
const std::uint32_t TypeKey = base::Hash("type");

/// What the object layer asks of this one.
bool InitializeObject(base::object& instance, const char* type, const char* name, const char* cfgs,
                      base::object* owner) {
  auto* object = dynamic_cast<Object*>(&instance);
  if (!object) return true;
  const Attempt attempt;
  const bool ok =
      Shielded("Initialize", object, [&] { return object->Initialize(type, name, cfgs, owner); });
  if (!ok && !attempt.Told()) Refuse("\"", name, "\" of class ", type, " cannot be initialised");
  return ok;
}

base::ObjectListSafe& GlobalList() { return Factory::Globle(); }

[[maybe_unused]] const bool HooksSet = [] {
  base::ObjectHooks hooks;
  hooks.initialize = InitializeObject;
  hooks.list = GlobalList;
  base::SetObjectHooks(hooks);
  return true;
}();

/// Reads a property of an integer type through a buffer of that very type.
template <class T>
bool ReadWide(base::IProperty& property, base::object& instance, long long& wide) {
  T value{};
  if (!property.get(instance, &value)) return false;
  wide = static_cast<long long>(value);  // NOLINT(bugprone-signed-char-misuse): a number
  return true;
}

using WideReader = bool (*)(base::IProperty&, base::object&, long long&);
struct IntegerType {
  const std::type_info& type;
  WideReader read;
};
const IntegerType IntegerTypes[] = {
    {typeid(bool), ReadWide<bool>},
    {typeid(char), ReadWide<char>},
    {typeid(signed char), ReadWide<signed char>},
    {typeid(unsigned char), ReadWide<unsigned char>},
    {typeid(short), ReadWide<short>},
    {typeid(unsigned short), ReadWide<unsigned short>},
    {typeid(int), ReadWide<int>},
    {typeid(unsigned int), ReadWide<unsigned int>},
    {typeid(long), ReadWide<long>},
    {typeid(unsigned long), ReadWide<unsigned long>},
    {typeid(long long), ReadWide<long long>},
    {typeid(unsigned long long), ReadWide<unsigned long long>},
};

bool ReadProperty(base::IProperty& property, base::object& instance, void* value,
                  const std::type_info& requested) {
  const std::type_info& type = *Framework::Info(property).type;
  if (type == requested) return property.get(instance, value);
  if (requested != typeid(long long)) return false;
  for (const IntegerType& known : IntegerTypes) {
    if (known.type == type) {
      return known.read(property, instance, *static_cast<long long*>(value));
    }
  }
  return false;
}

base::IProperty* PropertyOf(const base::object& instance, const char* name) {
  return name ? Framework::Property(instance, name) : nullptr;
}

}  // namespace

Object::Object() = default;
Object::~Object() = default;

bool Object::Initialize(const char*, const char*, const char* cfgs, base::object*) {
  if (!cfgs || !*cfgs) return true;
  base::AttrSet attrs(cfgs);
  return fromAttrSet(attrs);
}

void Object::Release() {
  StatusTakeDown();
  base::object::Release();
}

base::AttrSet Object::AttrSetInit(std::initializer_list<Pair> pairs) {
  base::AttrSet attrs;
  for (const auto& [key, value] : pairs) attrs.Set(key, value);
  return attrs;
}

bool Object::GetWithType(const char* name, void* value, const std::type_info& requested,
                         const Accept& accept) {
  const auto accepted = [&accept](const std::type_info& type) { return !accept || accept(&type); };
  const auto key = base::Hash(name);
  if (key == StatusKey || key == NameKey) {
    if (requested != typeid(std::string) || !accepted(typeid(std::string))) return false;
    return GetStr(name, *static_cast<std::string*>(value));
  }
  base::IProperty* property = PropertyOf(*this, name);
  if (!property || !property->get) return false;
  const std::type_info* type = Framework::Info(*property).type;
  if (!type || !accepted(*type)) return false;
  return Shielded("A property", this,
                  [&] { return ReadProperty(*property, *this, value, requested); });
}

bool Object::SetStr(const char* key, const char* value) {
  if (base::Hash(key) == StatusKey) return StatusSet(value);
  base::IProperty* property = PropertyOf(*this, key);
  if (!property || !property->setStr) return false;
  std::string address;
  const std::type_info* type = Framework::Info(*property).type;
  if (type && *type == typeid(IPort*) && value) {
    auto port = FindPort(value);
    if (!port) {
      Explain("Port \"", value, "\": ", port.Why());
      return false;
    }
    address = PortAddress(*port);
    value = address.c_str();
  }
  return Shielded("A property", this, [&] { return property->setStr(*this, value); });
}

bool Object::GetStr(const char* key, std::string& value) {
  const auto id = base::Hash(key);
  if (id == StatusKey) {
    value = StatusName(StatusGet());
    return true;
  }
  if (id == NameKey) {
    value = Name();
    return true;
  }
  base::IProperty* property = PropertyOf(*this, key);
  if (!property || !property->getStr) return false;
  return Shielded("A property", this, [&] {
    std::string text;
    if (!property->getStr(*this, text)) return false;
    value = text;
    return true;
  });
}

bool Object::toAttrSet(base::AttrSet& attrs) {
  for (const base::IProperty* property : Framework::Properties(*this)) {
    std::string value;
    if (!Framework::Info(*property).persistent || !property->setStr) continue;
    if (GetStr(property->Name().c_str(), value)) attrs.Set(property->Name().c_str(), value.c_str());
  }
  return true;
}

bool Object::fromAttrSet(base::AttrSet& attrs) {
  return Framework::Valid(attrs) ? configure(attrs) : Attempt::MarkTold();  // by the set itself
}

bool Object::configure(base::AttrSet& attrs) {
  for (const auto& [key, value] : Framework::Entries(attrs)) {
    const auto id = base::Hash(key.c_str());
    if (id == TypeKey || id == NameKey) continue;
    const Attempt attempt;
    if (SetStr(key.c_str(), value.c_str())) continue;
    if (attempt.Told()) return false;
    return Refuse("\"", PathOf(*this), "\" refuses ", base::ShowPiece(key), "=",
                  base::ShowPiece(value), WhyNotSet(*this, key, value));
  }
  return true;
}

}  // namespace nimbo::stream
