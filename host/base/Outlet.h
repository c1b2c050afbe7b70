#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "nimbo/base/api.h"
#include "sync/Mutex.h"

namespace nimbo::base {

/// Writes texts to a standard stream or a terminal whose reader may stop reading, or go, at any
/// time: a pager, a stopped terminal, a collector that hangs.
///
/// Who delivers packets never waits for a reader: what finds no room is kept, up to a bound, and
/// beyond it dropped whole, which is told where the stream goes on. Other threads wait, as programs
/// do, until somebody is in a hurry. A reader that has gone ends nothing and raises no signal.
class NIMBO_API Outlet {
 public:
  /// Whether a gap is told in the stream itself.
  enum class Gaps { Told, Silent };

  /// Writes to `descriptor`, which stays open while the outlet is used, or to whatever else it has
  /// become by then.
  explicit Outlet(int descriptor, Gaps gaps = Gaps::Told) noexcept
      : _descriptor(descriptor), _tells(gaps == Gaps::Told) {}
  Outlet(const Outlet&) = delete;
  Outlet& operator=(const Outlet&) = delete;

  /// [any] Writes `text`, whole and behind all that was written before; what was printed with the C
  /// library comes before a text on standard output. False when the reader has gone.
  bool Write(std::string_view text) EXCLUDES(_mutex);
  /// [any] Waits for the reader of what is kept, so long at most.
  void Flush(std::chrono::milliseconds patience) EXCLUDES(_mutex);
  /// [any] Whether something is kept, so that Flush should be called again.
  bool Waiting() EXCLUDES(_mutex);

  /// [any] The calling thread never waits for a reader.
  static void NeverWaitHere() noexcept;
  /// [any] While it is on, no thread waits for a reader, nor goes on waiting.
  static void Hurry(bool on) noexcept;

 private:
  /// Offers what is kept to the reader. False when that has gone.
  bool Pass() REQUIRES(_mutex);
  bool Add(std::string_view text, bool waits) REQUIRES(_mutex);

  const int _descriptor;
  const bool _tells;
  sync::Mutex _mutex;  ///< held for moments, never while a reader is waited for
  std::string _kept GUARDED_BY(_mutex);
  std::size_t _dropped GUARDED_BY(_mutex) = 0;  ///< texts behind what is kept
};

/// How long who ends waits for the reader of what is kept.
constexpr std::chrono::milliseconds LastPatience{1000};

/// The process's standard streams. They live as long as it does. [any]
NIMBO_API Outlet& StandardOutput() noexcept;
NIMBO_API Outlet& StandardError() noexcept;

}  // namespace nimbo::base
