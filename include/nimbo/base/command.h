#pragma once

#include <functional>

#include "nimbo/base/api.h"
#include "nimbo/base/attr_set.h"

namespace nimbo::base {

/// [loading] Puts a plug-in into the framework's list. `registration` is called with `name` when
/// plug-ins are registered: entries of a smaller `order` first, those of the same one in the order
/// in which they came; one that needs nothing of another passes 0. Returns the entry's number,
/// counted from 0.
NIMBO_API int ReflectAdd(void (*registration)(const char*), int order, const char* name);

/// [loading] Registers a shell command; an earlier one of that name is replaced. The handler, of
/// which a copy is kept, runs on the shell's thread and returns whether the command succeeded.
/// Returns the command's number, counted from 0.
NIMBO_API int omfCmdRegister(const char* name, const std::function<bool(AttrSet&)>& handler);

}  // namespace nimbo::base
