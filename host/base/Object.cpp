#include "nimbo/base/object.h"

#include "host/base/ConfigText.h"
#include "host/base/Console.h"
#include "host/base/Framework.h"
#include "host/base/Nearest.h"
#include "host/base/Pin.h"
#include "nimbo/base/class.h"

namespace nimbo::base {

object::object() = default;

object::~object() { Pin::Retire(*this); }

void object::Release() {
  Pin::Retire(*this);
  delete this;
}

bool object::configure(AttrSet& attrs) {
  const std::uint32_t type = Hash("type");
  const std::uint32_t name = Hash("name");
  for (const auto& [key, value] : Framework::Entries(attrs)) {
    const std::uint32_t id = Hash(key.c_str());
    if (id == type || id == name) continue;
    const IProperty* property = Framework::Property(*this, key.c_str());
    if (property && property->setStr && property->setStr(*this, value.c_str())) continue;
    std::vector<std::string> names;
    for (const IProperty* known : Framework::Properties(*this)) {
      if (known->setStr) names.push_back(known->Name());
    }
    return Refuse("\"", Name(), "\" does not take the setting \"", ShowPiece(key), "\"",
                  property ? "" : Suggest(key, names));
  }
  return true;
}

}  // namespace nimbo::base
