#pragma once

#include "host/base/Console.h"
#include "nimbo/base/object.h"

namespace nimbo::stream {

/// [any] Inside a catch block: the red line about the exception that escaped from `call` of
/// `instance`, which may be null. Always false.
bool RefuseException(const char* call, const base::object* instance);

/// [any] Calls into code that is not the framework's. An exception that escapes it becomes one red
/// line that names `call` and the object, and a false result.
template <class Body>
bool Shielded(const char* call, const base::object* instance, const Body& body) {
  try {
    return body();
  } catch (...) {
    return RefuseException(call, instance);
  }
}

}  // namespace nimbo::stream
