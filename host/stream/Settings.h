#pragma once

#include <string>
#include <vector>

#include "nimbo/base/object.h"

namespace nimbo::stream {

/// [any] What an object can be asked for or told: "status", "name", and the properties of its
/// class.
NIMBO_API std::vector<std::string> PropertyNames(const base::object& instance);

/// [any] The end of a line about a setting that `instance` did not take, or a property that it did
/// not tell: the name that was meant, or what is wrong. Empty where that cannot be seen.
NIMBO_API std::string WhyNotSet(const base::object& instance, const std::string& key,
                                const std::string& value);
NIMBO_API std::string WhyNotRead(const base::object& instance, const std::string& key);

}  // namespace nimbo::stream
