#include "nimbo/base/platform.h"

extern "C" {

// Here the floating-point unit is always on.
void vfp_enable() {}
void vfp_disable() {}
}
