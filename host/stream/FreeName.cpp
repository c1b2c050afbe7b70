#include "host/stream/FreeName.h"

#include <algorithm>

#include "base/reflect/Class.h"

namespace nimbo::stream {

std::string FreeName(const base::IClass& cl, const std::vector<const base::object*>& others) {
  const std::string first = cl.Name().substr(0, cl.Name().find('-'));
  std::string name = first;
  const auto used = [&name](const base::object* other) {
    return other->ID() == base::Hash(name.c_str());
  };
  for (int number = 2; std::any_of(others.begin(), others.end(), used); ++number) {
    name = first + "-" + std::to_string(number);
  }
  return name;
}

}  // namespace nimbo::stream
