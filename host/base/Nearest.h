#pragma once

#include <string>
#include <vector>

#include "nimbo/base/api.h"

/// Lines that refuse a name end in what could be said instead.

namespace nimbo::base {

/// [any] The choice that `name` was most likely meant to be: that with the fewest letters left out,
/// added, replaced or swapped with their neighbour, capitals or not. Of equal ones the first; empty
/// when none is near.
NIMBO_API std::string Nearest(const std::string& name, const std::vector<std::string>& choices);

/// [any] `; did you mean "NEAREST"?`, or nothing when none is near.
NIMBO_API std::string DidYouMean(const std::string& name, const std::vector<std::string>& choices);

/// [any] The same, but `; there are: CHOICE, CHOICE` when none is near.
NIMBO_API std::string Suggest(const std::string& name, const std::vector<std::string>& choices);

}  // namespace nimbo::base
