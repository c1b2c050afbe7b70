#include "host/capture/av/VideoTranscoder.h"

#include <algorithm>
#include <sstream>

#include "host/capture/Monotonic.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace nimbo::capture::av {

namespace {

constexpr char Preset[] = "superfast";
constexpr char Profile[] = "main";
constexpr int GopSeconds = 2;

/// Bits that a picture element gets at least, usually and at most.
constexpr double MinBits = 0.05;
constexpr double UsualBits = 0.1;
constexpr double MaxBits = 0.25;
constexpr double LowestBitRate = 100'000;
constexpr double HighestBitRate = 50'000'000;

/// What the encoder is told of a rate that is no fraction of small numbers.
constexpr int LargestRate = 100'000;

std::int64_t UsualBitRate(const AVCodecParameters& parameters, int width, int height,
                          double picturesPerSecond) {
  const double elements = static_cast<double>(width) * height * picturesPerSecond;
  const double asked =
      parameters.bit_rate > 0 ? static_cast<double>(parameters.bit_rate) : elements * UsualBits;
  const double fitting = std::clamp(asked, elements * MinBits, elements * MaxBits);
  return static_cast<std::int64_t>(std::clamp(fitting, LowestBitRate, HighestBitRate));
}

}  // namespace

Status VideoTranscoder::Open(const AVCodecParameters& parameters, AVRational frameRate,
                             const Encoding& wanted) {
  _settings = {};
  _settings.width = wanted.width > 0 ? wanted.width : parameters.width & ~1;
  _settings.height = wanted.height > 0 ? wanted.height : parameters.height & ~1;
  if (parameters.width <= 1 || parameters.height <= 1) {
    return Status::Failed("the size of its pictures is not known");
  }
  double picturesPerSecond = av_q2d(frameRate);
  if (wanted.pictures > 0 && wanted.pictures < picturesPerSecond) {
    picturesPerSecond = wanted.pictures;
    frameRate = av_d2q(picturesPerSecond, LargestRate);
  }
  _settings.frameRate = frameRate;
  _settings.bitRate = wanted.videoBitRate > 0 ? wanted.videoBitRate
                                              : UsualBitRate(parameters, _settings.width,
                                                             _settings.height, picturesPerSecond);
  _settings.gop =
      wanted.gop > 0 ? wanted.gop : std::max(1, static_cast<int>(picturesPerSecond * GopSeconds));
  _preset = wanted.preset.empty() ? Preset : wanted.preset;
  _settings.preset = _preset.c_str();
  _settings.profile = Profile;
  if (Status opened = _decoder.Open(parameters); !opened) return opened;
  if (Status opened = _encoder.Open(_settings); !opened) return opened;
  _scaled.reset(_encoder.NewFrame());
  if (!_scaled) return Status::Failed("no memory for a picture");
  _period = av_rescale(frameRate.den, NsPerSecond, frameRate.num);
  _thin = wanted.pictures > 0;
  _output.SetMedia(_encoder.NewMedia());
  return {};
}

std::string VideoTranscoder::Described() const {
  std::ostringstream text;
  text << _settings.width << "x" << _settings.height << ", " << av_q2d(_settings.frameRate)
       << " pictures/s, " << _settings.bitRate / 1000 << " kbit/s, a key frame every "
       << _settings.gop << ", libx264 " << _preset;
  return text.str();
}

Status VideoTranscoder::Push(AVPacket& packet) {
  return _decoder.Decode(&packet, [this](AVFrame& frame) { return Encode(frame); });
}

Status VideoTranscoder::Break() {
  Status done = _decoder.Decode(nullptr, [this](AVFrame& frame) { return Encode(frame); });
  _decoder.Restart();
  return done;
}

Status VideoTranscoder::Encode(AVFrame& frame) {
  const std::int64_t time = frame.pts != AV_NOPTS_VALUE ? frame.pts : _last + _period;
  // The encoder takes one picture for each time.
  if (_started && time <= _last) return {};
  if (_thin) {
    // Half a period early is in time: pictures come a little before or behind their turn.
    if (_started && time < _due - _period / 2) return {};
    _due = (_started && time < _due + _period ? _due : time) + _period;
  }
  _scaler.reset(sws_getCachedContext(_scaler.release(), frame.width, frame.height,
                                     static_cast<AVPixelFormat>(frame.format), _scaled->width,
                                     _scaled->height, AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr,
                                     nullptr, nullptr));
  if (!_scaler || av_frame_make_writable(_scaled.get()) < 0) {
    return Status::Failed("its pictures cannot be converted");
  }
  sws_scale(_scaler.get(), frame.data, frame.linesize, 0, frame.height, _scaled->data,
            _scaled->linesize);
  _started = true;
  _last = time;
  return _encoder.Encode(*_scaled, time, false, _output);
}

}  // namespace nimbo::capture::av
