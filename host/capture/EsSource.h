#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/capture/CaptureSource.h"
#include "host/capture/EsTrack.h"
#include "host/capture/PicturePace.h"
#include "nimbo/base/attr_set.h"

namespace nimbo::capture {

/// The capture source "es": elementary streams from files or pipes.
///
/// Options: `video` the path of an H.264 stream in Annex B form, `audio` that of AAC in ADTS frames
/// ("-": standard input); at least one. `fr` frames per second of the video (30, 29.97,
/// 30000/1001); otherwise the stream tells, or 30 is taken. `loop` how often it is played: a
/// number, or `true` for without end. `pace`: `realtime` (as usual) hands out pictures when they
/// are due and sound with the picture before it, `fast` as soon as they are asked for. `wait`: the
/// seconds that Open gives each stream to its first frame, 10 as usual.
///
/// Time stamps count frames. In real time they start at the time of CLOCK_MONOTONIC at which Start
/// was called; a stop holds them up. With `fast` they start at 0, so that streams of several
/// sources fit together however late each was started. The streams are merged by time, video first
/// where the times are equal.
class NIMBO_API EsSource final : public CaptureSource {
 public:
  /// Null with one console line when an option is wrong.
  static std::unique_ptr<CaptureSource> Make(const std::string& name, const base::AttrSet& options);
  ~EsSource() override;

  std::vector<std::string> Outputs() const override;
  bool Open() override;
  const std::vector<stream::IMedia*>& Streams() const override { return _streams; }
  bool Start() override;
  std::int64_t Began() const override { return _origin; }
  Held<stream::Packet> Read() override;
  void Abort() override { _abort.Set(); }
  bool Lost() const override { return _failed; }
  void Close() override;
  /// A file and a pipe can wait, at either pace.
  bool Unpaced() const override { return true; }

 private:
  EsSource() = default;
  EsTrack* Next();
  bool Again();

  AbortEvent _abort;
  std::vector<std::unique_ptr<EsTrack>> _tracks;
  std::vector<std::string> _codecs;
  std::vector<Held<stream::IMedia>> _media;  ///< keeps what _streams shows
  std::vector<stream::IMedia*> _streams;     ///< as Open found them
  bool _fast = false;
  bool _failed = false;
  std::uint64_t _plays = 1;       ///< asked for; 0: without end
  std::uint64_t _played = 0;      ///< so far
  std::int64_t _round_start = 0;  ///< time of the first frame of this round, in the source's time
  std::int64_t _origin = 0;       ///< time stamp of the source's time 0
  std::int64_t _position = 0;     ///< source's time of the next packet
  PicturePace _pace;
};

}  // namespace nimbo::capture
