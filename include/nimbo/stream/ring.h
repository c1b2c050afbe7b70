#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <utility>

#include "nimbo/base/object.h"

namespace nimbo::stream {

/// A ring of fixed capacity with one writer and any number of readers, each at its own position;
/// the oldest entry is overwritten. The ring does all locking.
template <class T>
class IRing {
 public:
  /// A reader's place in a ring. Made by CreateReader; whoever made it deletes it. Only the reading
  /// thread calls Pop; WaitAbort may be called from any thread. A ring that is destroyed detaches
  /// its readers first.
  class Reader {
   public:
    Reader() = default;
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    /// [control] Leaves the ring. No thread may be inside Pop.
    ~Reader();

    /// [reading] Takes the next entry into `entry`, which is pinned until the reader's next wait.
    /// Waits for `timeout`, without limit when it is zero or negative. False when there was none in
    /// time, the wait was aborted, or there is no ring.
    bool Pop(T& entry, std::chrono::nanoseconds timeout);
    /// [any] Ends the wait in Pop; when no wait is under way, the next one.
    void WaitAbort();

    IRing* ring = nullptr;       ///< null while the reader is not attached
    std::uint32_t position = 0;  ///< sequence number of the next entry to read
    base::object* owner = nullptr;
    std::uint32_t reserved = 0;
    std::function<bool()> wakeTest;  ///< asked after a wake-up whether to go on

   private:
    /// The ring, loaded atomically: its end detaches the reader on the control thread.
    IRing* Attached() const noexcept;
  };

  /// [control] A new reader that starts at the next entry written.
  Reader* CreateReader(base::object* owner);

  virtual ~IRing() = default;

  /// [any] The ring to read, and the position at which a new reader starts.
  virtual std::pair<IRing*, std::uint32_t> StartPoint() = 0;
  /// [reading] The entry at `position`; null when it is gone or not yet written.
  virtual T* Get(std::uint32_t position) = 0;
  /// [reading] Waits for an entry at the reader's position, without limit or for `timeout` (ns).
  /// Non-zero when one is ready; it is pinned for the reader until its next wait. A reader that was
  /// lapped is moved to the oldest entry first. `woken` is set when WaitAbort ended the wait.
  virtual int Wait(Reader& reader, bool& woken) = 0;
  virtual int WaitFor(Reader& reader, bool& woken, std::int64_t timeout) = 0;
  /// [any] Ends the reader's wait, or its next one.
  virtual void Wake(Reader& reader) = 0;
  /// [control] Makes the reader known to the ring.
  virtual void AddReader(Reader& reader) = 0;
  /// [control] Told after a reader was added.
  virtual void ReaderAdded(Reader& reader) = 0;
  /// [control] Forgets the reader and its pin.
  virtual void RemoveReader(Reader& reader) = 0;
  /// [any] Capacity in entries.
  virtual int Size() const = 0;
  /// [any] Sequence number of the next entry to be written.
  virtual std::uint32_t WritePosition() const = 0;
};

}  // namespace nimbo::stream

#include "base/reflect/RingReader.h"
