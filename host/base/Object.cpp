#include "nimbo/base/object.h"

#include "host/base/ConfigText.h"
#include "host/base/Nearest.h"
#include "host/base/Pin.h"
#include "log/Line.h"
#include "nimbo/base/class.h"

namespace nimbo::base {

using log::Colour;
using log::Line;

object::object() = default;

object::~object() { Pin::Retire(*this); }

void object::Release() {
  Pin::Retire(*this);
  delete this;
}

bool object::configure(AttrSet& attrs) {
  const std::uint32_t type = Hash("type");
  const std::uint32_t name = Hash("name");
  for (const auto& [key, value] : attrs.Entries()) {
    const std::uint32_t id = Hash(key.c_str());
    if (id == type || id == name) continue;
    const IProperty* property = _class ? _class->Property(key.c_str()) : nullptr;
    if (property && property->setStr && property->setStr(*this, value.c_str())) continue;
    std::vector<std::string> names;
    for (const IProperty* known : _class ? _class->Properties() : std::vector<IProperty*>()) {
      if (known->setStr) names.push_back(known->Name());
    }
    Line(Colour::Red) << "\"" << Printable(Name()) << "\" does not take the setting \""
                      << ShowPiece(key) << "\"" << (property ? "" : Suggest(key, names));
    return false;
  }
  return true;
}

}  // namespace nimbo::base
