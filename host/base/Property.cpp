#include "nimbo/base/property.h"

namespace nimbo::base {

IProperty::~IProperty() = default;

void IProperty::init(const char* name, const std::type_info& type, int size,
                     const char* description) {
  Name(name);
  _type = &type;
  _size = size;
  _description = description;
}

}  // namespace nimbo::base
