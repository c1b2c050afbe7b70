#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <string>

#include "common/Held.h"
#include "host/base/Clock.h"
#include "host/elements/av/MovieFile.h"
#include "nimbo/stream/element.h"
#include "sync/Mutex.h"

namespace nimbo::stream {

/// The element "recorder": writes what it gets to files in fragmented MP4, from a key frame on. A
/// file that cannot be written, on a full disk above all, is told in one line and tried again after
/// a pause, as another one; nothing else notices.
///
/// Properties: "file", its path, in which strftime's conversions stand for the time of day and
/// which is numbered where there is such a file; "segment": seconds until the next key frame begins
/// another file, 0 for never; "packets" and "bytes", recorded since Open.
class Recorder final : public IElement {
 public:
  /// [control] Takes the element down.
  ~Recorder() override;

  /// False, with one line, when no file could be made there.
  bool Open() override;
  bool Close() override;
  bool ReceivePacket(Packet& packet, void* from) override;

  bool SetFile(const char* path);
  std::string GetFile() const;
  bool SetSegment(const char* text);
  std::string GetSegment() const;
  unsigned int GetPackets() const { return _packets; }
  unsigned long long GetBytes() const { return _bytes; }

  /// [control] Registers the class.
  static void Register();

 private:
  /// Takes what the packet tells of its stream. True when a file under way cannot go on with it.
  bool Describe(const Packet& packet);
  /// True when all that waits can be written: every input has told its stream, or has had time to.
  bool Complete() const;
  /// Begins a file with what waits.
  void Begin();
  void Write(const Packet& packet);
  void End();
  void Fail(const nimbo::Status& failure);

  mutable sync::Mutex _mutex;
  std::string _file GUARDED_BY(_mutex);
  std::atomic<std::chrono::nanoseconds> _segment{};
  std::atomic<unsigned int> _packets{0};
  std::atomic<unsigned long long> _bytes{0};

  // Of the thread that delivers.
  MovieFile _movie;
  std::string _path;  ///< of the file under way
  Held<IMedia> _video;
  Held<IMedia> _audio;
  std::deque<Held<Packet>> _waiting;  ///< from a key frame on, for the other stream's first packet
  std::int64_t _began = 0;            ///< time stamp of the file's first packet
  Clock::time_point _retry{};         ///< behind a failure
};

}  // namespace nimbo::stream
