#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "nimbo/base/api.h"

namespace nimbo::capture {

/// A time of CLOCK_MONOTONIC that does not come.
constexpr std::int64_t Never = std::numeric_limits<std::int64_t>::max();

/// A switch that ends waits: those under way and all later ones until it is cleared. [any]
class NIMBO_API AbortEvent {
 public:
  AbortEvent();
  ~AbortEvent();
  AbortEvent(const AbortEvent&) = delete;
  AbortEvent& operator=(const AbortEvent&) = delete;

  void Set();
  void Clear();
  bool IsSet() const;
  /// Waits until the CLOCK_MONOTONIC time `due` (ns). False when the switch ended the wait.
  bool WaitUntil(std::int64_t due) const;
  /// Waits until `descriptor` can be read. False when the switch, or the CLOCK_MONOTONIC time `due`
  /// (ns), ended the wait.
  bool WaitReadable(int descriptor, std::int64_t due = Never) const;

 private:
  std::atomic<bool> _set{false};  ///< so that looking costs no system call
  int _event;
};

/// [any] CLOCK_MONOTONIC in nanoseconds.
NIMBO_API std::int64_t MonotonicNow();

/// How long (ns) an input may take to its first frame, unless its option `wait` says otherwise: one
/// that stays silent must not hold up the control thread for ever.
constexpr std::int64_t FirstFramePatience = 10'000'000'000;
/// [any] Reads such a time from a text in seconds, such as "2.5". False when it is none, or more
/// than a day.
NIMBO_API bool ParsePatience(const std::string& text, std::int64_t& patience);
/// [any] A time in nanoseconds as a text such as "2.5 s".
NIMBO_API std::string InSeconds(std::int64_t time);

/// A file or pipe that is read from front to back, of which a piece lies in memory. The piece grows
/// by what is read and shrinks by what was used; its memory grows with the largest piece.
class NIMBO_API ByteWindow {
 public:
  enum class Result { More, End, Aborted, TooLarge, Failed };

  /// Reads up to `readSize` bytes at a time. `abort` must stay alive while the window is used.
  ByteWindow(const AbortEvent& abort, std::size_t readSize) : _abort(abort), _read_size(readSize) {}
  ~ByteWindow() { Close(); }
  ByteWindow(const ByteWindow&) = delete;
  ByteWindow& operator=(const ByteWindow&) = delete;

  /// Opens the file at `path`; "-" is the standard input. False with the reason in `error`.
  bool Open(const std::string& path, std::string& error);
  void Close();
  /// True for a regular file.
  bool Seekable() const { return _seekable; }
  /// Goes back to the front. False for what is no regular file.
  bool Rewind();
  /// More waits up to this CLOCK_MONOTONIC time (ns) only, and then says that it was aborted.
  void SetDeadline(std::int64_t due) { _deadline = due; }
  /// Reads on behind the piece. The position of everything in the piece may change.
  Result More();
  /// Lets go of the first `size` bytes of the piece.
  void Use(std::size_t size);

  const unsigned char* Data() const { return _memory.get() + _begin; }
  std::size_t Size() const { return _end - _begin; }
  /// Where Data() stands in the file, in bytes.
  std::uint64_t Offset() const { return _offset; }
  /// What More failed with.
  const std::string& Error() const { return _error; }

 private:
  bool MakeRoom();

  const AbortEvent& _abort;
  const std::size_t _read_size;
  int _descriptor = -1;
  bool _seekable = false;
  std::int64_t _deadline = Never;
  std::unique_ptr<unsigned char[]> _memory;
  std::size_t _capacity = 0;
  std::size_t _begin = 0;
  std::size_t _end = 0;
  std::uint64_t _offset = 0;
  std::string _error;
};

}  // namespace nimbo::capture
