#include "host/capture/av/AudioTranscoder.h"

#include <algorithm>
#include <cstdlib>

#include "host/capture/Adts.h"
#include "host/capture/Monotonic.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace nimbo::capture::av {

namespace {

constexpr char Unconverted[] = "its sound cannot be converted";
constexpr char NoMemory[] = "no memory for sound";
constexpr std::int64_t BitRatePerChannel = 64'000;
/// Sound whose time stamps differ less from the count of its samples goes on without a break.
constexpr std::int64_t Tolerance = 100 * NsPerMillisecond;

}  // namespace

Status AudioTranscoder::Open(const AVCodecParameters& parameters, std::int64_t bitRate) {
  const int channels = parameters.ch_layout.nb_channels == 1 ? 1 : 2;
  if (Status opened = _decoder.Open(parameters); !opened) return opened;
  const int rate = NearestAacRate(parameters.sample_rate);
  _bit_rate = bitRate > 0 ? bitRate : BitRatePerChannel * channels;
  if (Status opened = _encoder.Open(rate, channels, _bit_rate); !opened) return opened;
  _frame.reset(_encoder.NewFrame());
  _fifo.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, channels, static_cast<int>(AacFrameSamples)));
  if (!_frame || !_fifo) return Status::Failed(NoMemory);
  _output.SetMedia(_encoder.NewMedia());
  return {};
}

std::string AudioTranscoder::Described() const {
  return std::to_string(_encoder.Rate()) + " Hz, " + std::to_string(_encoder.Channels()) +
         " channels, " + std::to_string(_bit_rate / 1000) + " kbit/s";
}

Status AudioTranscoder::Push(AVPacket& packet) {
  return _decoder.Decode(&packet, [this](AVFrame& frame) { return Resample(frame); });
}

Status AudioTranscoder::Break() {
  Status done = _decoder.Decode(nullptr, [this](AVFrame& frame) { return Resample(frame); });
  _decoder.Restart();
  return done;
}

Status AudioTranscoder::Finish() {
  Status drained = Break();
  return drained ? _encoder.Encode(nullptr, 0, _output) : drained;
}

std::int64_t AudioTranscoder::TimeAt(std::int64_t sample) const {
  return _anchor + av_rescale(sample, NsPerSecond, _encoder.Rate());
}

Status AudioTranscoder::Resample(AVFrame& frame) {
  if (!_resampler || frame.sample_rate != _source_rate || frame.format != _source_format ||
      frame.ch_layout.nb_channels != _source_channels) {
    SwrContext* resampler = nullptr;
    const int result = swr_alloc_set_opts2(
        &resampler, &_frame->ch_layout, AV_SAMPLE_FMT_FLTP, _encoder.Rate(), &frame.ch_layout,
        static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr);
    _resampler.reset(resampler);
    if (result < 0 || swr_init(resampler) < 0) return Status::Failed(Unconverted);
    _source_rate = frame.sample_rate;
    _source_format = frame.format;
    _source_channels = frame.ch_layout.nb_channels;
  }
  const std::int64_t inside =
      av_audio_fifo_size(_fifo.get()) + swr_get_delay(_resampler.get(), _encoder.Rate());
  if (frame.pts != AV_NOPTS_VALUE) {
    const std::int64_t step = frame.pts - TimeAt(_encoded + inside);
    if (!_started || std::abs(step) > Tolerance) {
      _anchor = frame.pts - av_rescale(inside, NsPerSecond, _encoder.Rate());
      _encoded = 0;
    }
  }
  _started = true;
  const int room = swr_get_out_samples(_resampler.get(), frame.nb_samples);
  FramePtr converted(av_frame_alloc());
  converted->format = AV_SAMPLE_FMT_FLTP;
  converted->sample_rate = _encoder.Rate();
  converted->nb_samples = std::max(1, room);
  if (room < 0 || av_channel_layout_copy(&converted->ch_layout, &_frame->ch_layout) < 0 ||
      av_frame_get_buffer(converted.get(), 0) < 0) {
    return Status::Failed(Unconverted);
  }
  const int got =
      swr_convert(_resampler.get(), converted->extended_data, room,
                  const_cast<const std::uint8_t**>(frame.extended_data), frame.nb_samples);
  if (got < 0 ||
      av_audio_fifo_write(_fifo.get(), reinterpret_cast<void**>(converted->data), got) < got) {
    return Status::Failed(Unconverted);
  }
  return EncodeWhole();
}

Status AudioTranscoder::EncodeWhole() {
  const int samples = _frame->nb_samples;
  while (av_audio_fifo_size(_fifo.get()) >= samples) {
    if (av_frame_make_writable(_frame.get()) < 0) return Status::Failed(NoMemory);
    av_audio_fifo_read(_fifo.get(), reinterpret_cast<void**>(_frame->data), samples);
    Status encoded = _encoder.Encode(_frame.get(), TimeAt(_encoded), _output);
    if (!encoded) return encoded;
    _encoded += samples;
  }
  return {};
}

}  // namespace nimbo::capture::av
