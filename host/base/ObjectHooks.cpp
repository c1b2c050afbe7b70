#include "host/base/ObjectHooks.h"

namespace nimbo::base {

namespace {

ObjectHooks hooks;

}  // namespace

void SetObjectHooks(const ObjectHooks& with) { hooks = with; }
const ObjectHooks& GetObjectHooks() { return hooks; }

}  // namespace nimbo::base
