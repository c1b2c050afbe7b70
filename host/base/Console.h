#pragma once

#include <string>
#include <utility>

#include "host/base/ConfigText.h"
#include "log/Line.h"
#include "nimbo/base/ostream.h"

/// What the host says to people, and how it keeps one mistake to one line.

namespace nimbo {

/// One step of the calling thread that may fail for a reason that stands on the console by then.
/// Whoever finds the reason tells it (Refuse); whoever made the attempt asks whether that was done,
/// and else tells a reason of its own. For calls that can only say true or false, as those of the
/// contract do; all others return a Status. [any]
class NIMBO_API Attempt {
 public:
  Attempt() noexcept;
  Attempt(const Attempt&) = delete;
  Attempt& operator=(const Attempt&) = delete;
  /// What was told counts for the attempt around this one, too.
  ~Attempt();

  /// Whether a reason was told since it began.
  bool Told() const noexcept;
  /// The reason of the calling thread's attempts stands on the console. Always false.
  static bool MarkTold() noexcept;

 private:
  bool _before;
};

/// While it lives, the calling thread tells nothing: it tries again what failed, and why that was
/// has been told.
class NIMBO_API Hush {
 public:
  Hush() noexcept;
  Hush(const Hush&) = delete;
  Hush& operator=(const Hush&) = delete;
  ~Hush();
  static bool Rules() noexcept;

 private:
  bool _before;
};

/// [any] One console line. The pieces may come from outside, so it is made printable.
template <class... Pieces>
void Tell(log::Colour colour, const Pieces&... pieces) {
  if (Hush::Rules()) return;
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
  Tell(log::Colour::Red, pieces...);
  return Attempt::MarkTold();
}

/// [any] One plain line of an answer.
NIMBO_API void Say(const std::string& text);

/// [any] A text on standard error, as it is.
NIMBO_API void Note(const std::string& text);

/// [any] One line of the program itself, on standard error, red on a terminal.
NIMBO_API void Complain(const std::string& text);

/// [any] Inside a catch block: the red line about the exception under way, which begins with
/// `what`. Always false.
NIMBO_API bool RefuseException(const std::string& what) noexcept;

/// [any] Makes a call into a plug-in. An exception that escapes from it becomes one console line
/// that begins with `what`, and the result `otherwise`.
template <class Result, class Call>
Result Guarded(const std::string& what, Result otherwise, Call&& call) {
  try {
    return std::forward<Call>(call)();
  } catch (...) {
    RefuseException(what);
    return otherwise;
  }
}

}  // namespace nimbo
