#include "host/capture/av/Demuxer.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>

#include "host/base/Console.h"
#include "host/capture/Monotonic.h"
#include "host/capture/av/LibavLog.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace nimbo::capture::av {

namespace {

/// How long a device that has nothing yet is left alone.
constexpr std::int64_t DevicePause = 5 * NsPerMillisecond;
/// Time stamps that jump further than this are taken for a break in the input.
constexpr std::int64_t LargestStep = 10 * NsPerSecond;
/// Pictures a second where nothing is known.
constexpr AVRational DefaultFrameRate = {25, 1};
/// How much of a live elementary stream is looked at: its first pictures tell all of it.
constexpr std::int64_t RawAnalysis = 200'000;  ///< microseconds, as libavformat counts here
constexpr int LiveRateProbe = 3;               ///< pictures

constexpr std::size_t Index(Kind kind) { return static_cast<std::size_t>(kind); }

std::int64_t ToNanoseconds(std::int64_t time, AVRational base) {
  return av_rescale_q(time, base, NanosecondBase);
}

}  // namespace

Demuxer::Demuxer(const InputOptions& options, const AbortEvent& abort)
    : _options(options), _abort(abort), _pipe(abort) {}

bool Demuxer::Open() {
  _played = 0;
  _round_start = 0;
  _round_end = 0;
  struct stat status = {};
  _beginning = true;
  _device = _options.Device();
  const bool file = stat(_options.url.c_str(), &status) == 0;
  _regular_file = file && S_ISREG(status.st_mode);
  _named_pipe = file && S_ISFIFO(status.st_mode);
  return OpenInput();
}

void Demuxer::Close() {
  for (Track& track : _tracks) track = {};
  _input.reset();
  _pipe.Close();
}

const AVCodecParameters* Demuxer::Parameters(Kind kind) const {
  return _tracks[Index(kind)].parameters.get();
}

bool Demuxer::OpenInput() {
  Close();
  _origin_known = false;
  LogScope log;
  AVFormatContext* input = avformat_alloc_context();
  if (!input) return Fail("cannot be opened", AVERROR(ENOMEM), "");
  input->interrupt_callback = {Interrupted, this};
  // A device that waits does not ask whether it is to go on.
  if (_device) input->flags |= AVFMT_FLAG_NONBLOCK;
  if (_options.Pipe() >= 0 || _named_pipe) {
    if (const Status opened = _pipe.Open(_options.Pipe(), _options.url); !opened) {
      avformat_free_context(input);
      return Refuse("av: \"", _options.Shown(), "\" cannot be opened: ", opened.Why());
    }
    input->pb = _pipe.Context();
  }
  Dictionary rest;
  for (const auto& [key, value] : _options.rest) rest.Set(key.c_str(), value.c_str());
  Expect();
  // Frees the context when it fails.
  int result = avformat_open_input(&input, _options.url.c_str(), _options.Format(), rest.Address());
  if (result < 0) return Fail("cannot be opened", result, log.Detail());
  _input.reset(input);
  if (_played == 0 && !rest.Keys().empty()) {
    Explain("av: \"", _options.Shown(), "\": libavformat has no use for ", rest.Keys(),
            InputOptions::WhyUseless(rest.Keys()));
  }
  // A format that is called as a codec is nothing but that codec's stream.
  const bool raw = avcodec_descriptor_get_by_name(_input->iformat->name) != nullptr;
  if (raw && !_regular_file) _input->max_analyze_duration = RawAnalysis;
  // What the network brings is looked at no longer than for its sets: its rate matters little.
  if (_options.Live()) _input->fps_probe_size = LiveRateProbe;
  Expect();
  result = avformat_find_stream_info(_input.get(), nullptr);
  if (Late()) result = AVERROR_EXIT;  // which it may have taken for the end
  if (result < 0) return Fail("cannot be read", result, log.Detail());
  for (unsigned i = 0; i < _input->nb_streams; ++i) _input->streams[i]->discard = AVDISCARD_ALL;
  if (!SelectTrack(Kind::Video, AVMEDIA_TYPE_VIDEO, _options.video) ||
      !SelectTrack(Kind::Audio, AVMEDIA_TYPE_AUDIO, _options.audio)) {
    return false;
  }
  if (Parameters(Kind::Video) || Parameters(Kind::Audio)) return true;
  const char* wanted = !_options.audio ? "video" : !_options.video ? "audio" : "video or audio";
  return Refuse("av: \"", _options.Shown(), "\" holds no ", wanted, log.Detail());
}

bool Demuxer::SelectTrack(Kind kind, AVMediaType type, bool wanted) {
  for (unsigned i = 0; wanted && i < _input->nb_streams; ++i) {
    AVStream& stream = *_input->streams[i];
    const bool coverPicture = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
    if (stream.codecpar->codec_type != type || coverPicture) continue;
    stream.discard = AVDISCARD_DEFAULT;
    Track& track = _tracks[Index(kind)];
    track.index = static_cast<int>(i);
    track.timeBase = stream.time_base;
    track.next = _round_start;
    track.parameters.reset(avcodec_parameters_alloc());
    avcodec_parameters_copy(track.parameters.get(), stream.codecpar);
    if (kind == Kind::Audio) {
      const int rate = std::max(1, stream.codecpar->sample_rate);
      const int samples = std::max(1, stream.codecpar->frame_size);
      track.fallbackDuration = av_rescale(samples, NsPerSecond, rate);
      return true;
    }
    if (const auto* matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr)) {
      const double turned = av_display_rotation_get(reinterpret_cast<const std::int32_t*>(matrix));
      _rotation = std::isnan(turned) ? 0 : static_cast<int>(std::lround(-turned));
    }
    _frame_rate = av_guess_frame_rate(_input.get(), &stream, nullptr);
    if (_frame_rate.num <= 0 || _frame_rate.den <= 0) _frame_rate = DefaultFrameRate;
    track.fallbackDuration = av_rescale(_frame_rate.den, NsPerSecond, _frame_rate.num);
    const AVCodecID codec = stream.codecpar->codec_id;
    const char* filter = codec == AV_CODEC_ID_H264 ? "h264_mp4toannexb" : nullptr;
    if (codec == AV_CODEC_ID_HEVC && _options.enhanced) filter = "hevc_mp4toannexb";
    return !filter || OpenFilter(track, stream, filter);
  }
  return true;
}

bool Demuxer::OpenFilter(Track& track, const AVStream& stream, const char* name) {
  LogScope log;
  AVBSFContext* filter = nullptr;
  int result = av_bsf_alloc(av_bsf_get_by_name(name), &filter);
  track.filter.reset(filter);
  if (result >= 0) result = avcodec_parameters_copy(filter->par_in, stream.codecpar);
  if (result >= 0) {
    filter->time_base_in = stream.time_base;
    result = av_bsf_init(filter);
  }
  if (result >= 0) result = avcodec_parameters_copy(track.parameters.get(), filter->par_out);
  return result >= 0 || Fail("has a video stream that cannot be read", result, log.Detail());
}

Demuxer::Event Demuxer::Read() {
  Event event = ReadInput();
  if (event.result != Result::End) return event;
  ++_played;
  if (_options.plays != 0 && _played >= _options.plays) return event;
  // An input that holds no packet would be repeated without a pause.
  if (_round_end <= _round_start) return event;
  _round_start = _round_end;
  event.result = OpenInput() ? Result::Repeat : Result::Failed;
  return event;
}

Demuxer::Event Demuxer::ReadInput() {
  LogScope log;
  while (true) {
    Event event = {Result::Packet, Kind::Video, PacketPtr(av_packet_alloc())};
    Expect();
    int result = 0;
    do {
      result = av_read_frame(_input.get(), event.packet.get());
    } while (result == AVERROR(EAGAIN) && !Interrupted(this));
    if (result < 0) {
      event.packet.reset();
      if (Late()) result = AVERROR_EXIT;
      if (_abort.IsSet()) {
        event.result = Result::Aborted;
      } else if (result == AVERROR_EOF) {
        event.result = Result::End;
      } else {
        event.result = Result::Failed;
        Fail("cannot be read on", result, log.Detail());
      }
      return event;
    }
    for (const Kind kind : {Kind::Video, Kind::Audio}) {
      Track& track = _tracks[Index(kind)];
      if (event.packet->stream_index != track.index) continue;
      SetTimes(track, *event.packet);
      event.kind = kind;
      event.result = Filter(track, *event.packet);
      if (event.result == Result::Packet && event.packet->size > 0) return event;
      if (event.result == Result::Failed) return event;
    }
  }
}

/// Brings a packet into Annex B form; an empty packet when the filter gives nothing for it.
Demuxer::Result Demuxer::Filter(Track& track, AVPacket& packet) {
  if (!track.filter) return Result::Packet;
  int result = av_bsf_send_packet(track.filter.get(), &packet);
  if (result >= 0) result = av_bsf_receive_packet(track.filter.get(), &packet);
  // A damaged packet is left out.
  if (result >= 0 || result == AVERROR(EAGAIN) || result == AVERROR_INVALIDDATA) {
    return Result::Packet;
  }
  Fail("has a packet that cannot be read", result, "");
  return Result::Failed;
}

void Demuxer::SetTimes(Track& track, AVPacket& packet) {
  std::int64_t duration = ToNanoseconds(packet.duration, track.timeBase);
  if (duration <= 0) duration = track.fallbackDuration;
  std::int64_t decode = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
  // The line is moved by whole nanoseconds, so that equal decode and presentation times stay equal.
  std::int64_t move = 0;
  if (decode == AV_NOPTS_VALUE) {
    decode = track.next;
  } else {
    decode = ToNanoseconds(decode, track.timeBase);
    if (!_origin_known) {
      _origin = decode;
      _origin_known = true;
    }
    move = _round_start - _origin + track.shift;
    const std::int64_t step = decode + move - track.next;
    if (track.started && (step > LargestStep || step < -LargestStep)) {
      track.shift -= step;
      move -= step;
    }
    decode += move;
  }
  if (packet.pts != AV_NOPTS_VALUE) packet.pts = ToNanoseconds(packet.pts, track.timeBase) + move;
  packet.dts = decode;
  packet.duration = duration;
  track.started = true;
  track.next = decode + duration;
  _round_end = std::max(_round_end, track.next);
}

void Demuxer::Resume() {
  _beginning = false;
  if (!_input || !_input->pb) return;
  _input->pb->error = 0;
  _input->pb->eof_reached = 0;
}

bool Demuxer::Fail(const char* what, int code, const std::string& detail) const {
  const bool silent = code == AVERROR_EXIT && Late() && !_abort.IsSet();
  std::string shown = detail;  // libavformat repeats addresses whole
  const std::string hidden = _options.Shown();
  for (auto at = shown.find(_options.url); at != std::string::npos && hidden != _options.url;
       at = shown.find(_options.url, at + hidden.size())) {
    shown.replace(at, _options.url.size(), hidden);
  }
  return Refuse(
      "av: \"", _options.Shown(), "\" ", what, ": ",
      silent ? "nothing was received for " + InSeconds(_options.patience) : ErrorText(code), shown,
      code == AVERROR_PROTOCOL_NOT_FOUND ? _options.WhyUnknown() : "");
}

void Demuxer::Expect() {
  const bool limited = (_beginning && !_regular_file) || _options.Network();
  _deadline = limited ? MonotonicNow() + _options.patience : Never;
  _pipe.SetDeadline(_deadline);
}

bool Demuxer::Late() const { return MonotonicNow() >= _deadline; }

int Demuxer::Interrupted(void* self) {
  const auto& demuxer = *static_cast<const Demuxer*>(self);
  // Files answer soon, and a read that was cut short there could not go on where it was.
  if (demuxer._regular_file) return 0;
  // Asked in a loop while a device has nothing.
  if (demuxer._device) demuxer._abort.WaitUntil(MonotonicNow() + DevicePause);
  return demuxer._abort.IsSet() || demuxer.Late();
}

}  // namespace nimbo::capture::av
