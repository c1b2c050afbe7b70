#pragma once

#include <string>
#include <vector>

#include "nimbo/base/class.h"

namespace nimbo::stream {

/// [control] The name of an unnamed object of class `cl`: the class's first keyword, with "-2",
/// "-3" and so on behind it while one of `others` has that name.
std::string FreeName(const base::IClass& cl, const std::vector<const base::object*>& others);

}  // namespace nimbo::stream
