#pragma once

#include <string>
#include <string_view>

namespace nimbo::monitor {

/// A file of the page, which the build puts into this module.
struct Resource {
  std::string_view path;
  const char* type;
  std::string_view text;
};

/// Null when there is no such file.
const Resource* FindResource(std::string_view path);

}  // namespace nimbo::monitor
