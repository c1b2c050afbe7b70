#pragma once

#include <string>

#include "host/base/ConfigText.h"
#include "log/Line.h"
#include "nimbo/base/object.h"

/// What the framework tells on the console, and how it shields itself from the code that it calls.

namespace nimbo::stream {

/// [any] Whether the reason of this thread's current failure stands on the console already. It lets
/// one mistake give one line: whoever finds the reason sets it, those further out stay silent.
NIMBO_API bool& FailureTold();

/// [any] One console line. The pieces may come from outside, so it is made printable.
template <class... Pieces>
void Tell(log::Colour colour, const Pieces&... pieces) {
  std::string text;
  base::ostream_string out(text);
  (out << ... << pieces);
  log::Line(colour) << base::Printable(text);
}

/// [any] One yellow line: why something will fail, for a caller that has its own failure line.
template <class... Pieces>
void Explain(const Pieces&... pieces) {
  Tell(log::Colour::Yellow, pieces...);
}

/// [any] One red line: what failed and why. Always false.
template <class... Pieces>
bool Refuse(const Pieces&... pieces) {
  FailureTold() = true;
  Tell(log::Colour::Red, pieces...);
  return false;
}

/// [any] Inside a catch block: the red line about the exception under way. Always false.
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
