#pragma once

#include <array>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "common/Status.h"
#include "host/capture/AbortEvent.h"
#include "host/capture/CaptureSource.h"
#include "host/capture/PicturePace.h"
#include "host/capture/av/Demuxer.h"
#include "host/capture/av/SilentPath.h"
#include "host/capture/av/StreamPath.h"
#include "nimbo/base/attr_set.h"

namespace nimbo::capture::av {

/// The capture source "av": the first video and the first audio stream of anything that libavformat
/// opens. What the wire format can describe is passed through; all else is transcoded, with one
/// line that says why. That is decided once, by what comes first: see H264Pass, and LivePass for a
/// client that can carry everything.
///
/// Options: `url`; `format`, where libavformat does not find it out (v4l2, alsa, ...); `pace`:
/// `realtime` (as usual) or `fast`; `loop`, how often it is played: a number, or `true` for without
/// end; `streams`: `video`, `audio` or `both` (as usual); `transcode`: `true` for never passing
/// through; `video_bitrate`, `size`, `fps`, `keyint`, `preset` and `audio_bitrate`: what
/// transcoding makes, which they ask for; `carry`: what the client can carry, `classic` (as usual),
/// `live`, or `any` for the classic form where that is enough; `enhanced`: `true` where it also
/// carries what takes Enhanced RTMP; `silence`: `true` for silence where the input has no sound;
/// `keep`: `true` for a live input that is opened again whenever it has ended, see KeptSource, for
/// clients that carry everything; `auto` for that where it is possible; `slate`: the file of the
/// picture that is shown meanwhile; `wait`: how many seconds the input may be silent while it is
/// opened (10 as usual; what comes from the network also later). All others go to libavformat.
///
/// Devices are read without blocking and asked again every few milliseconds, so that a silent one
/// can be stopped: those that know libavformat's flag for it (v4l2, alsa and most others).
///
/// Time stamps: in real time those of a file start at the time of CLOCK_MONOTONIC at which Start
/// was called, and a stop holds them up; those of a live source start at the time at which its
/// first packet came. With `fast` they start at 0.
class LibavSource final : public CaptureSource {
 public:
  /// Null with one line when an option is wrong.
  static std::unique_ptr<CaptureSource> Make(const std::string& name, const base::AttrSet& options);

  std::vector<std::string> Outputs() const override;
  bool Open() override;
  const std::vector<stream::IMedia*>& Streams() const override { return _streams; }
  bool Start() override;
  std::int64_t Began() const override { return _shift; }
  Held<stream::Packet> Read() override;
  void Abort() override { _abort.Set(); }
  bool Lost() const override { return _lost; }
  void Close() override;
  bool Unpaced() const override { return !_options.Live(); }
  bool Behind() const override { return _options.Live() && !_probed.empty(); }
  std::int64_t BitRate() const override;
  void SetBitRate(std::int64_t bitRate) override;

 private:
  explicit LibavSource(InputOptions options);

  bool Probe();
  bool ProbeGoesOn() const;
  bool ChoosePaths();
  bool AddSilence();
  void Warn(bool passed) const;
  /// The way of a stream that is passed through, or why it has to be transcoded.
  Result<std::unique_ptr<StreamPath>> PassPath(Kind kind,
                                               const AVCodecParameters& parameters) const;
  std::vector<const AVPacket*> Beginning(Kind kind) const;
  StreamPath* Next();
  void Pump();
  void Handle(Demuxer::Event& event);
  void EndIfFailed(const Status& step);

  InputOptions _options;
  AbortEvent _abort;
  Demuxer _demuxer;
  std::array<std::unique_ptr<StreamPath>, KindCount> _paths;
  SilentPath* _silence = nullptr;            ///< the path of sound, where the input has none
  std::vector<Held<stream::IMedia>> _media;  ///< keeps what _streams shows
  std::vector<stream::IMedia*> _streams;
  std::deque<Demuxer::Event> _probed;
  bool _ended = false;
  bool _lost = false;          ///< the end came before its time
  std::int64_t _arrival = 0;   ///< when the first packet came
  std::int64_t _early = 0;     ///< how far in front of the first packet another one lies
  std::int64_t _shift = 0;     ///< from the demuxer's time line to time stamps
  std::int64_t _position = 0;  ///< on the demuxer's time line
  PicturePace _pace;
};

}  // namespace nimbo::capture::av
