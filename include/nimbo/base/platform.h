#pragma once

#include "nimbo/base/api.h"

/// [any] Switches the floating-point unit on and off for the calling thread. Empty operations on a
/// platform where it is always on.
extern "C" NIMBO_API void vfp_enable();
extern "C" NIMBO_API void vfp_disable();
