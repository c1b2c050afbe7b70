#pragma once

#include "nimbo/base/api.h"

namespace nimbo::base {

/// [any] How many threads of base::Thread an exception has ended. What they did is done no more,
/// and a program that was asked for it has failed.
NIMBO_API int LostThreads() noexcept;

}  // namespace nimbo::base
