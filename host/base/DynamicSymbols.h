#pragma once

#include <string>
#include <vector>

namespace nimbo::base {

/// [any] The names of the functions that the library behind `handle` (of dlopen) exports itself;
/// those of the libraries that it needs are not among them.
std::vector<std::string> ExportedFunctions(void* handle);

}  // namespace nimbo::base
