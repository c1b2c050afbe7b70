#include "host/base/Console.h"

#include <unistd.h>

#include <exception>
#include <new>

#include "host/base/Outlet.h"
#include "nimbo/base/ostream.h"

namespace nimbo {

namespace {

thread_local bool told = false;
thread_local bool hushed = false;

}  // namespace

Attempt::Attempt() noexcept : _before(std::exchange(told, false)) {}

Attempt::~Attempt() { told = told || _before; }

bool Attempt::Told() const noexcept { return told; }

bool Attempt::MarkTold() noexcept {
  told = true;
  return false;
}

Hush::Hush() noexcept : _before(std::exchange(hushed, true)) {}

Hush::~Hush() { hushed = _before; }

bool Hush::Rules() noexcept { return hushed; }

void Say(const std::string& text) { base::cout << text + "\n"; }

void Note(const std::string& text) { base::StandardError().Write(text); }

void Complain(const std::string& text) {
  // What was printed before explains it and comes first.
  base::StandardOutput().Write({});
  const bool coloured = isatty(STDERR_FILENO) != 0;
  Note((coloured ? "\033[31m" : "") + text + (coloured ? "\n\033[0m" : "\n"));
}

bool RefuseException(const std::string& what) noexcept {
  try {
    try {
      throw;
    } catch (const std::exception& error) {
      Refuse(what, ": an exception escaped: ", error.what());
    } catch (...) {
      Refuse(what, ": an exception of unknown type escaped");
    }
  } catch (const std::bad_alloc&) {
    base::StandardOutput().Write("\033[31mout of memory\n\033[0m");
  }
  return Attempt::MarkTold();
}

}  // namespace nimbo

namespace nimbo::base {
namespace {

class Console final : public ostream {
 public:
  constexpr Console() noexcept = default;

  void Write(const char* text, std::size_t size) override { StandardOutput().Write({text, size}); }
};

/// Ready before the first static initialiser and never destroyed, because lines are written before
/// main and while the process ends.
union EternalConsole {
  constexpr EternalConsole() : console() {}
  ~EternalConsole() {}  // NOLINT(modernize-use-equals-default): that would be a deleted one
  Console console;
};
EternalConsole eternal;

}  // namespace

ostream& cout = eternal.console;

extern "C" {
int __root_path_offset = sizeof(NIMBO_SOURCE_ROOT) - 1;
}

}  // namespace nimbo::base
