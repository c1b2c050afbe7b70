#include "host/stream/Settings.h"

#include "host/base/Nearest.h"
#include "nimbo/base/class.h"

namespace nimbo::stream {

namespace {

/// Every object has them, whatever its class says.
constexpr char Status[] = "status";
constexpr char Name[] = "name";

bool Is(const std::string& key, const char* name) {
  return base::Hash(key.c_str()) == base::Hash(name);
}

/// The names of those properties that have `slot`.
template <class Slot>
std::vector<std::string> NamesWith(const base::object& instance, Slot slot) {
  std::vector<std::string> names{Status};
  if (!instance.Class()) return names;
  for (const auto* property : instance.Class()->Properties()) {
    if (property->*slot) names.push_back(property->Name());
  }
  return names;
}

std::string WhyUnknown(const std::string& key, const std::vector<std::string>& names) {
  return ": it has no such property" + base::Suggest(key, names);
}

const base::IProperty* PropertyOf(const base::object& instance, const std::string& key) {
  return instance.Class() ? instance.Class()->Property(key.c_str()) : nullptr;
}

}  // namespace

std::vector<std::string> PropertyNames(const base::object& instance) {
  std::vector<std::string> names{Status, Name};
  if (!instance.Class()) return names;
  for (const auto* property : instance.Class()->Properties()) names.push_back(property->Name());
  return names;
}

std::string WhyNotSet(const base::object& instance, const std::string& key,
                      const std::string& value) {
  if (Is(key, Status)) return {};
  if (Is(key, Name)) return ": it can only be read";
  const base::IProperty* property = PropertyOf(instance, key);
  if (!property) return WhyUnknown(key, NamesWith(instance, &base::IProperty::setStr));
  if (!property->setStr) return ": it can only be read";
  bool truth = false;
  const bool isTruth = property->Type() && *property->Type() == typeid(bool);
  if (isTruth && !base::ConvertToImpl(value.c_str(), truth)) return ": it is true or false";
  return {};
}

std::string WhyNotRead(const base::object& instance, const std::string& key) {
  const base::IProperty* property = PropertyOf(instance, key);
  if (!property) return WhyUnknown(key, NamesWith(instance, &base::IProperty::getStr));
  return property->getStr ? "" : ": it can only be set";
}

}  // namespace nimbo::stream
