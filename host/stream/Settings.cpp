#include "host/stream/Settings.h"

#include "host/base/Framework.h"
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
  for (const auto* property : Framework::Properties(instance)) {
    if (property->*slot) names.push_back(property->Name());
  }
  return names;
}

std::string WhyUnknown(const std::string& key, const std::vector<std::string>& names) {
  return ": it has no such property" + base::Suggest(key, names);
}

}  // namespace

std::vector<std::string> PropertyNames(const base::object& instance) {
  std::vector<std::string> names{Status, Name};
  for (const auto* property : Framework::Properties(instance)) names.push_back(property->Name());
  return names;
}

std::string WhyNotSet(const base::object& instance, const std::string& key,
                      const std::string& value) {
  if (Is(key, Status)) return {};
  if (Is(key, Name)) return ": it can only be read";
  const base::IProperty* property = Framework::Property(instance, key.c_str());
  if (!property) return WhyUnknown(key, NamesWith(instance, &base::IProperty::setStr));
  if (!property->setStr) return ": it can only be read";
  bool truth = false;
  const std::type_info* type = Framework::Info(*property).type;
  const bool isTruth = type && *type == typeid(bool);
  if (isTruth && !base::ConvertToImpl(value.c_str(), truth)) return ": it is true or false";
  return {};
}

std::string WhyNotRead(const base::object& instance, const std::string& key) {
  const base::IProperty* property = Framework::Property(instance, key.c_str());
  if (!property) return WhyUnknown(key, NamesWith(instance, &base::IProperty::getStr));
  return property->getStr ? "" : ": it can only be set";
}

}  // namespace nimbo::stream
