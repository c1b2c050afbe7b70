#pragma once

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "nimbo/base/ostream.h"

namespace nimbo::log {

/// Where in the source a console line comes from.
struct Site {
  const char* file;
  int line;
  const char* function;

  /// The place of the call.
  static constexpr Site Here(const char* file = __builtin_FILE(), int line = __builtin_LINE(),
                             const char* function = __builtin_FUNCTION()) {
    return {file, line, function};
  }
};

enum class Colour : char { Red = '1', Green = '2', Yellow = '3', Cyan = '6' };

/// One console line. It is put together here and written whole at the end of its scope, so that
/// lines of several threads never mix and a line printed meanwhile comes first:
/// colour, source path, "/", line number, "/", function, ":\t", text, newline, reset.
class Line {
 public:
  /// A line without a place.
  explicit Line(Colour colour) : _out(_text) {
    const char start[] = {'\033', '[', '3', static_cast<char>(colour), 'm', '\0'};
    _out << start;
  }
  Line(Colour colour, const Site& site) : Line(colour) {
    const auto skip = std::min(std::strlen(site.file),
                               static_cast<std::size_t>(std::max(base::__root_path_offset, 0)));
    _out << site.file + skip << "/" << site.line << "/" << site.function << ":\t";
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;
  ~Line() {
    try {
      _out << "\n\033[0m";
      base::cout << _text;
    } catch (const std::bad_alloc&) {
      // A line is not worth the process.
    }
  }

  template <class V>
  Line& operator<<(const V& value) {
    _out << value;
    return *this;
  }

 private:
  std::string _text;
  base::ostream_string _out;
};

/// The line of a failed check: `condition` is its source text. Always false, so that a check can
/// return it.
inline bool Failure(const Site& site, const char* condition) {
  Line(Colour::Red, site) << condition;
  return false;
}

/// The same for a check that carries a message, whose pieces follow a ",".
template <class... Pieces>
bool Failure(const Site& site, const char* condition, const Pieces&... message) {
  Line line(Colour::Red, site);
  line << condition << ",";
  (line << ... << message);
  return false;
}

}  // namespace nimbo::log
