#include "host/capture/av/LibavSource.h"

#include <algorithm>

#include "host/base/Console.h"
#include "host/capture/av/AudioTranscoder.h"
#include "host/capture/av/KeptSource.h"
#include "host/capture/av/LivePass.h"
#include "host/capture/av/Obstacle.h"
#include "host/capture/av/PassThrough.h"
#include "host/capture/av/VideoTranscoder.h"

namespace nimbo::capture::av {

namespace {

/// How much of an input is looked at before it is decided what can be passed through: so many key
/// frames (whole groups of pictures lie between them) and pictures, else so many packets or bytes.
struct ProbeLimits {
  int keyFrames;
  int pictures;
  std::size_t packets;
};
constexpr ProbeLimits FileLimits = {3, 0, 1000};
/// What is looked at of anything but a file is late by as much. The sets stand in front of the
/// first key frame, and pictures that are reordered or cut into slices come soon behind it.
constexpr ProbeLimits LiveLimits = {1, 6, 150};
constexpr std::int64_t MaxProbedBytes = std::int64_t{64} * 1024 * 1024;

/// A stream may be so much ahead of the other one before it no longer waits for it.
constexpr std::int64_t FileLead = 2 * NsPerSecond;
constexpr std::int64_t LiveLead = 200 * NsPerMillisecond;

/// What most platforms take.
constexpr int SilenceRate = 48000;
constexpr int SilenceChannels = 2;

constexpr const char* KindNames[KindCount] = {"video", "audio"};
constexpr const char* KindCodecs[KindCount] = {"h264", "aac"};

constexpr std::size_t Index(Kind kind) { return static_cast<std::size_t>(kind); }

}  // namespace

std::unique_ptr<CaptureSource> LibavSource::Make(const std::string&, const base::AttrSet& options) {
  InputOptions read;
  if (!ReadInputOptions(options, read)) return nullptr;
  const auto make = [read] { return std::unique_ptr<CaptureSource>(new LibavSource(read)); };
  if (!read.keep) return make();
  return std::make_unique<KeptSource>(make(), make, read.Shown(), read.slate);
}

LibavSource::LibavSource(InputOptions options)
    : _options(std::move(options)), _demuxer(_options, _abort) {}

std::vector<std::string> LibavSource::Outputs() const {
  std::vector<std::string> codecs;
  const auto codec = [this](Kind kind) {
    return _options.enhanced ? "" : KindCodecs[Index(kind)];  // which one, the input tells
  };
  if (_options.video) codecs.emplace_back(codec(Kind::Video));
  if (_options.audio) codecs.emplace_back(codec(Kind::Audio));
  return codecs;
}

bool LibavSource::Open() { return _demuxer.Open() && Probe() && ChoosePaths(); }

void LibavSource::Close() {
  _abort.Clear();
  _streams.clear();
  _media.clear();
  _probed.clear();
  _silence = nullptr;
  for (auto& path : _paths) path.reset();
  _demuxer.Close();
  _ended = false;
  _lost = false;
  _arrival = 0;
  _early = 0;
  _position = 0;
  _pace.Restart();
}

bool LibavSource::Probe() {
  while (ProbeGoesOn()) {
    Demuxer::Event event = _demuxer.Read();
    if (event.result == Demuxer::Result::Aborted || event.result == Demuxer::Result::Failed) {
      return false;
    }
    if (_arrival == 0) _arrival = MonotonicNow();
    if (event.packet) _early = std::max(_early, -event.packet->dts);
    _probed.push_back(std::move(event));
  }
  return true;
}

bool LibavSource::ProbeGoesOn() const {
  const ProbeLimits& limits = _demuxer.RegularFile() ? FileLimits : LiveLimits;
  const AVCodecParameters* video = _demuxer.Parameters(Kind::Video);
  const AVCodecParameters* audio = _demuxer.Parameters(Kind::Audio);
  const bool passable = video && (video->codec_id == AV_CODEC_ID_H264 ||
                                  (_options.enhanced && video->codec_id == AV_CODEC_ID_HEVC));
  int keyFrames = passable ? limits.keyFrames : 0;
  int pictures = passable ? limits.pictures : 0;
  // A stream that does not tell its configuration at the beginning tells it in every frame.
  int audioFrames = audio && audio->extradata_size == 0 ? 1 : 0;
  std::int64_t bytes = 0;
  for (const Demuxer::Event& event : _probed) {
    if (!event.packet) return false;
    bytes += event.packet->size;
    if (event.kind == Kind::Audio) --audioFrames;
    if (event.kind != Kind::Video) continue;
    if ((event.packet->flags & AV_PKT_FLAG_KEY) != 0) --keyFrames;
    --pictures;
  }
  return (keyFrames > 0 || pictures > 0 || audioFrames > 0) && _probed.size() < limits.packets &&
         bytes < MaxProbedBytes;
}

std::vector<const AVPacket*> LibavSource::Beginning(Kind kind) const {
  std::vector<const AVPacket*> packets;
  for (const Demuxer::Event& event : _probed) {
    if (event.packet && event.kind == kind) packets.push_back(event.packet.get());
  }
  return packets;
}

Result<std::unique_ptr<StreamPath>> LibavSource::PassPath(
    Kind kind, const AVCodecParameters& parameters) const {
  using Path = std::unique_ptr<StreamPath>;
  const bool video = kind == Kind::Video;
  const Encoding& wanted = _options.encoding;
  const bool encode = _options.transcode || (video ? wanted.AsksForVideo() : wanted.AsksForAudio());
  const auto beginning = Beginning(kind);
  const ParameterSets sets = video ? CollectSets(parameters, beginning) : ParameterSets();
  std::string obstacle;
  if (_options.carried != Carried::Live) {
    obstacle =
        video ? VideoObstacle(parameters, beginning, sets) : AudioObstacle(parameters, beginning);
    if (obstacle.empty() && video && !encode) {
      return Path(std::make_unique<H264Pass>(parameters.width, parameters.height, sets));
    }
    if (obstacle.empty() && !encode) {
      return Path(std::make_unique<AacPass>(parameters.sample_rate,
                                            parameters.ch_layout.nb_channels,
                                            parameters.extradata_size == 0));
    }
  }
  if (encode) return Status::Failed(obstacle.empty() ? "as asked for" : obstacle);
  if (_options.carried != Carried::Classic) {
    obstacle = LiveObstacle(parameters, beginning, _options.enhanced);
    if (obstacle.empty()) return NewLivePass(parameters, beginning);
  }
  return Status::Failed(obstacle);
}

bool LibavSource::ChoosePaths() {
  std::string obstacles[KindCount];
  std::string made[KindCount];
  for (const Kind kind : {Kind::Video, Kind::Audio}) {
    const AVCodecParameters* parameters = _demuxer.Parameters(kind);
    if (!parameters) continue;
    auto& path = _paths[Index(kind)];
    if (auto passed = PassPath(kind, *parameters)) {
      path = std::move(*passed);
    } else {
      obstacles[Index(kind)] = passed.Why();
    }
    const Encoding& wanted = _options.encoding;
    Status opened;
    if (!path && kind == Kind::Video) {
      auto transcoder = std::make_unique<VideoTranscoder>();
      opened = transcoder->Open(*parameters, _demuxer.FrameRate(), wanted);
      if (opened) made[Index(kind)] = transcoder->Described();
      path = std::move(transcoder);
    } else if (!path) {
      auto transcoder = std::make_unique<AudioTranscoder>();
      opened = transcoder->Open(*parameters, wanted.audioBitRate);
      if (opened) made[Index(kind)] = transcoder->Described();
      path = std::move(transcoder);
    }
    if (!opened) {
      return Refuse("av: \"", _options.Shown(), "\": its ", KindNames[Index(kind)],
                    " cannot be transcoded: ", opened.Why());
    }
    stream::IMedia* media = path->Output().Media();
    _media.push_back(Share(*media));
    _streams.push_back(media);
  }
  std::string reasons;
  for (const Kind kind : {Kind::Video, Kind::Audio}) {
    if (obstacles[Index(kind)].empty()) continue;
    reasons += std::string(reasons.empty() ? "" : "; ") + KindNames[Index(kind)] +
               " is transcoded (" + obstacles[Index(kind)] + "): " + made[Index(kind)];
  }
  Warn(obstacles[Index(Kind::Video)].empty());
  if (!reasons.empty()) Explain("av: \"", _options.Shown(), "\": ", reasons);
  return AddSilence();
}

bool LibavSource::AddSilence() {
  auto& sound = _paths[Index(Kind::Audio)];
  if (!_options.silence || sound || !_paths[Index(Kind::Video)]) return true;
  auto silence = std::make_unique<SilentPath>();
  if (const Status opened = silence->Open(SilenceRate, SilenceChannels); !opened) {
    return Refuse("av: \"", _options.Shown(), "\": silence cannot be made: ", opened.Why());
  }
  _silence = silence.get();
  sound = std::move(silence);
  stream::IMedia* media = sound->Output().Media();
  _media.push_back(Share(*media));
  _streams.push_back(media);
  return true;
}

/// Says what of its pictures servers and players will hardly take as it is.
void LibavSource::Warn(bool passed) const {
  const AVCodecParameters* video = _demuxer.Parameters(Kind::Video);
  if (!video) return;
  const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(video->format));
  const bool deep = format && format->comp[0].depth > 8;
  const bool full = format && (format->log2_chroma_w != 1 || format->log2_chroma_h != 1);
  if (passed && (deep || full)) {
    Explain("av: \"", _options.Shown(), "\": its pictures have ",
            deep ? std::to_string(format->comp[0].depth) + " bits" : "",
            deep && full ? " and " : "", full ? "other than 4:2:0 colours" : "",
            ", which most servers and players cannot use; with --preset superfast they are encoded "
            "anew");
  }
  if (_demuxer.Rotation() != 0) {
    Explain("av: \"", _options.Shown(), "\": its pictures are to be turned by ",
            _demuxer.Rotation(), " degrees, which they are not: they are published as they lie");
  }
}

bool LibavSource::Start() {
  _abort.Clear();
  _demuxer.Resume();
  if (_options.Live()) {
    _shift = _arrival != 0 ? _arrival : MonotonicNow();
  } else {
    _shift = _options.realtime ? MonotonicNow() - _position : _early;
  }
  return true;
}

std::int64_t LibavSource::BitRate() const {
  const auto& path = _paths[Index(Kind::Video)];
  return path ? path->BitRate() : 0;
}

void LibavSource::SetBitRate(std::int64_t bitRate) {
  if (const auto& path = _paths[Index(Kind::Video)]) path->SetBitRate(bitRate);
}

Held<stream::Packet> LibavSource::Read() {
  while (!_abort.IsSet()) {
    if (StreamPath* next = Next()) {
      _position = next->Output().FrontTime();
      const bool paced = _options.realtime && !_options.Live();
      const auto& video = _paths[Index(Kind::Video)];
      const bool leads = !video || next == video.get();
      if (paced && !_abort.WaitUntil(_pace.Due(_position, leads) + _shift)) return nullptr;
      return next->Output().Take(_shift);
    }
    if (_ended) return nullptr;
    Pump();
  }
  return nullptr;
}

/// The path whose packet comes next; null when it is not known yet.
StreamPath* LibavSource::Next() {
  StreamPath* next = nullptr;
  bool waiting = false;
  if (_silence) {
    const StreamOutput& pictures = _paths[Index(Kind::Video)]->Output();
    if (!pictures.Empty()) {
      _silence->Fill(pictures.FrontTime(), pictures.FrontTime() + pictures.Span());
    }
  }
  for (const auto& path : _paths) {
    if (!path) continue;
    StreamOutput& output = path->Output();
    if (output.Empty()) {
      waiting = waiting || path.get() != _silence;
    } else if (!next || output.FrontTime() < next->Output().FrontTime()) {
      next = path.get();
    }
  }
  const std::int64_t lead = _options.Live() ? LiveLead : FileLead;
  if (next && waiting && !_ended && next->Output().Span() < lead) return nullptr;
  return next;
}

void LibavSource::Pump() {
  if (_probed.empty()) {
    Demuxer::Event event = _demuxer.Read();
    Handle(event);
  } else {
    Demuxer::Event event = std::move(_probed.front());
    _probed.pop_front();
    Handle(event);
  }
}

void LibavSource::Handle(Demuxer::Event& event) {
  switch (event.result) {
    case Demuxer::Result::Packet:
      // A repetition may hold a stream that was not there before.
      if (StreamPath* path = _paths[Index(event.kind)].get())
        EndIfFailed(path->Push(*event.packet));
      break;
    case Demuxer::Result::Repeat:
      for (const auto& path : _paths) {
        if (path) EndIfFailed(path->Break());
      }
      break;
    case Demuxer::Result::End:
    case Demuxer::Result::Failed:
      for (const auto& path : _paths) {
        if (path && !_ended) EndIfFailed(path->Finish());
      }
      _ended = true;
      _lost = _lost || _options.Live() || event.result == Demuxer::Result::Failed;
      if (_options.Live() && event.result == Demuxer::Result::End) {
        Refuse("av: \"", _options.Shown(), "\" has ended, as a live input should not");
      }
      break;
    case Demuxer::Result::Aborted:
      break;
  }
}

void LibavSource::EndIfFailed(const Status& step) {
  if (step) return;
  _ended = true;
  _lost = true;
  Refuse("av: \"", _options.Shown(), "\": ", step.Why());
}

}  // namespace nimbo::capture::av
