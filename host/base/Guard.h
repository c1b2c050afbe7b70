#pragma once

#include <string>
#include <utility>

#include "nimbo/base/api.h"

namespace nimbo::base {

/// [any] Inside a catch block: tells the exception under way in one red console line that begins
/// with `what`.
NIMBO_API void TellException(const std::string& what) noexcept;

/// Makes a call into a plug-in. An exception that escapes from it becomes one console line that
/// begins with `what`, and the result `otherwise`.
template <class Result, class Call>
Result Guarded(const std::string& what, Result otherwise, Call&& call) {
  try {
    return std::forward<Call>(call)();
  } catch (...) {
    TellException(what);
    return otherwise;
  }
}

}  // namespace nimbo::base
