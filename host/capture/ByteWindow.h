#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "nimbo/base/api.h"

namespace nimbo::capture {

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
  /// Waits until `descriptor` can be read. False when the switch ended the wait.
  bool WaitReadable(int descriptor) const;

 private:
  int _event;
};

/// [any] CLOCK_MONOTONIC in nanoseconds.
NIMBO_API std::int64_t MonotonicNow();

/// A file or pipe that is read from front to back, of which a piece lies in memory. The piece grows
/// by what is read and shrinks by what was used; its memory grows with the largest piece.
class NIMBO_API ByteWindow {
 public:
  enum class Result { More, End, Aborted, TooLarge, Failed };

  /// `abort` must stay alive while the window is used.
  explicit ByteWindow(const AbortEvent& abort) : _abort(abort) {}
  ~ByteWindow() { Close(); }
  ByteWindow(const ByteWindow&) = delete;
  ByteWindow& operator=(const ByteWindow&) = delete;

  /// Opens the file at `path`; "-" is the standard input. False with the reason in `error`.
  bool Open(const std::string& path, std::string& error);
  void Close();
  /// Goes back to the front. False for what is no regular file.
  bool Rewind();
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
  int _descriptor = -1;
  bool _seekable = false;
  std::unique_ptr<unsigned char[]> _memory;
  std::size_t _capacity = 0;
  std::size_t _begin = 0;
  std::size_t _end = 0;
  std::uint64_t _offset = 0;
  std::string _error;
};

}  // namespace nimbo::capture
