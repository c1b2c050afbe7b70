#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "host/capture/av/InputOptions.h"
#include "host/capture/av/Libav.h"
#include "host/capture/av/PipeReader.h"

namespace nimbo::capture::av {

enum class Kind : unsigned char { Video, Audio };
constexpr std::size_t KindCount = 2;

/// Takes an input apart: the packets of its first video and first audio stream, as far as they are
/// wanted, on one time line in nanoseconds that starts at 0 and goes on over repetitions. H.264 is
/// in Annex B form, whatever the input holds.
class Demuxer {
 public:
  enum class Result { Packet, Repeat, End, Aborted, Failed };
  struct Event {
    Result result;
    Kind kind;         ///< of the packet
    PacketPtr packet;  ///< null unless there is one
  };

  /// `options` and `abort` must stay alive.
  Demuxer(const InputOptions& options, const AbortEvent& abort);

  /// [control] False, with one line, when the input cannot be opened or has none of the streams.
  bool Open();
  void Close();

  /// Of the stream; null when there is none.
  const AVCodecParameters* Parameters(Kind kind) const;
  /// Pictures a second as far as the input tells; {0, 1} when it does not.
  AVRational FrameRate() const { return _frame_rate; }
  /// By how many degrees, clockwise, pictures are to be turned when they are shown.
  int Rotation() const { return _rotation; }
  /// True for what can be read again and again, as fast as it is wanted.
  bool RegularFile() const { return _regular_file; }

  /// [capturing] What comes next: a packet, the start of a repetition, or the end. A failure has
  /// been told in one line.
  Event Read();
  /// [control] Opening is over: from now on only the network may not be silent. Goes on after an
  /// aborted Read.
  void Resume();

 private:
  struct Track {
    int index = -1;  ///< in the input; -1 when there is none
    AVRational timeBase = {0, 1};
    ParametersPtr parameters;
    FilterPtr filter;               ///< to Annex B; null when none is needed
    std::int64_t fallbackDuration;  ///< of a packet that does not tell it
    std::int64_t shift = 0;         ///< bridges breaks in the time stamps
    std::int64_t next = 0;          ///< decode time that is expected next
    bool started = false;
  };

  bool OpenInput();
  bool SelectTrack(Kind kind, AVMediaType type, bool wanted);
  bool OpenFilter(Track& track, const AVStream& stream, const char* name);
  Event ReadInput();
  Result Filter(Track& track, AVPacket& packet);
  void SetTimes(Track& track, AVPacket& packet);
  bool Fail(const char* what, int code, const std::string& detail) const;
  void Expect();
  bool Late() const;
  static int Interrupted(void* self);

  const InputOptions& _options;
  const AbortEvent& _abort;
  PipeReader _pipe;
  InputPtr _input;
  std::array<Track, KindCount> _tracks;
  AVRational _frame_rate = {0, 1};
  int _rotation = 0;
  bool _regular_file = false;
  bool _named_pipe = false;
  bool _device = false;
  bool _beginning = false;         ///< the control thread waits
  std::int64_t _deadline = Never;  ///< until when something must have come
  std::uint64_t _played = 0;
  bool _origin_known = false;
  std::int64_t _origin = 0;       ///< the input's time at which this repetition starts
  std::int64_t _round_start = 0;  ///< where that is on the time line
  std::int64_t _round_end = 0;    ///< end of the packets so far
};

}  // namespace nimbo::capture::av
