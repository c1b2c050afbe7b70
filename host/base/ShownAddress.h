#pragma once

#include <string>

#include "nimbo/base/api.h"

namespace nimbo::base {

/// [any] The address of an input as it may be shown: a password in front of the host, and what
/// stands behind a `?`, is replaced. A file's name is shown as it is.
NIMBO_API std::string ShownAddress(const std::string& url);

}  // namespace nimbo::base
