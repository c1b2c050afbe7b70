#include <unistd.h>

#include <cstdio>

#include "common/SigPipeGuard.h"
#include "common/WriteAll.h"
#include "nimbo/base/ostream.h"
#include "sync/Mutex.h"

namespace nimbo::base {
namespace {

class Console final : public ostream {
 public:
  constexpr Console() noexcept = default;

  void Write(const char* text, std::size_t size) override {
    const sync::Lock lock(_mutex);
    // A console that has gone takes nothing more, and must not end the process.
    const SigPipeGuard guard;
    // What was printed with the C library comes first.
    const bool flushed = std::fflush(stdout) == 0;
    if (!WriteAll(STDOUT_FILENO, {text, size}) || !flushed) SigPipeGuard::Suspect();
  }

 private:
  sync::Mutex _mutex;  ///< held while a text is written
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
