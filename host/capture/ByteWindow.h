#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "common/FileDescriptor.h"
#include "common/Status.h"
#include "host/capture/AbortEvent.h"
#include "nimbo/base/api.h"

namespace nimbo::capture {

/// How far reading got, where nothing failed.
enum class Reading : unsigned char { Ready, End, Aborted };

/// A file or pipe that is read from front to back, of which a piece lies in memory. The piece grows
/// by what is read and shrinks by what was used; its memory grows with the largest piece.
class NIMBO_API ByteWindow {
 public:
  /// Reads up to `readSize` bytes at a time. `abort` must stay alive while the window is used.
  ByteWindow(const AbortEvent& abort, std::size_t readSize) : _abort(abort), _read_size(readSize) {}
  ByteWindow(const ByteWindow&) = delete;
  ByteWindow& operator=(const ByteWindow&) = delete;

  /// Opens the file at `path`; "-" is the standard input.
  Status Open(const std::string& path);
  void Close();
  /// True for a regular file.
  bool Seekable() const { return _seekable; }
  /// Goes back to the front. False for what is no regular file.
  bool Rewind();
  /// More waits up to this CLOCK_MONOTONIC time (ns) only, and then says that it was aborted.
  void SetDeadline(std::int64_t due) { _deadline = due; }
  /// True when the piece is as large as it may become.
  bool Full() const { return Size() > LargestPiece - _read_size; }
  /// Reads on behind the piece, which must not be full. The position of everything in the piece may
  /// change. A failure says at which byte.
  Result<Reading> More();
  /// Lets go of the first `size` bytes of the piece.
  void Use(std::size_t size);

  std::span<const unsigned char> Bytes() const { return {_memory.get() + _begin, _end - _begin}; }
  std::size_t Size() const { return _end - _begin; }
  /// Where Bytes() stand in the file, in bytes.
  std::uint64_t Offset() const { return _offset; }

 private:
  /// No access unit is larger: level 5.2 allows about 5 MB for one.
  static constexpr std::size_t LargestPiece = std::size_t{16} * 1024 * 1024;

  void MakeRoom();

  const AbortEvent& _abort;
  const std::size_t _read_size;
  FileDescriptor _file;
  bool _seekable = false;
  std::int64_t _deadline = Never;
  std::unique_ptr<unsigned char[]> _memory;
  std::size_t _capacity = 0;
  std::size_t _begin = 0;
  std::size_t _end = 0;
  std::uint64_t _offset = 0;
};

}  // namespace nimbo::capture
