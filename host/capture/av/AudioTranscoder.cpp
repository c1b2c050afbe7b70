#include <algorithm>
#include <cstdlib>

#include "host/capture/Adts.h"
#include "host/capture/Monotonic.h"
#include "host/capture/av/Transcoder.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace nimbo::capture::av {

namespace {

constexpr std::int64_t BitRatePerChannel = 64'000;
/// Sound whose time stamps differ less from the count of its samples goes on without a break.
constexpr std::int64_t Tolerance = 100 * NsPerMillisecond;

}  // namespace

bool AudioTranscoder::Open(const AVCodecParameters& parameters, std::string& error) {
  const int channels = parameters.ch_layout.nb_channels == 1 ? 1 : 2;
  if (!_decoder.Open(parameters, error) ||
      !_encoder.Open(NearestAacRate(parameters.sample_rate), channels, BitRatePerChannel * channels,
                     error)) {
    return false;
  }
  _frame.reset(_encoder.NewFrame());
  _fifo.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, channels, static_cast<int>(AacFrameSamples)));
  if (!_frame || !_fifo) {
    error = "no memory for sound";
    return false;
  }
  _output.SetMedia(_encoder.NewMedia());
  return true;
}

bool AudioTranscoder::Push(AVPacket& packet, std::string& error) {
  return _decoder.Decode(&packet, error, [&](AVFrame& frame) { return Resample(frame, error); });
}

bool AudioTranscoder::Break(std::string& error) {
  const bool done =
      _decoder.Decode(nullptr, error, [&](AVFrame& frame) { return Resample(frame, error); });
  _decoder.Restart();
  return done;
}

bool AudioTranscoder::Finish(std::string& error) {
  return Break(error) && _encoder.Encode(nullptr, 0, _output, error);
}

std::int64_t AudioTranscoder::TimeAt(std::int64_t sample) const {
  return _anchor + av_rescale(sample, NsPerSecond, _encoder.Rate());
}

bool AudioTranscoder::Resample(AVFrame& frame, std::string& error) {
  error = "its sound cannot be converted";
  if (!_resampler || frame.sample_rate != _source_rate || frame.format != _source_format ||
      frame.ch_layout.nb_channels != _source_channels) {
    SwrContext* resampler = nullptr;
    const int result = swr_alloc_set_opts2(
        &resampler, &_frame->ch_layout, AV_SAMPLE_FMT_FLTP, _encoder.Rate(), &frame.ch_layout,
        static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr);
    _resampler.reset(resampler);
    if (result < 0 || swr_init(resampler) < 0) return false;
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
    return false;
  }
  const int got =
      swr_convert(_resampler.get(), converted->extended_data, room,
                  const_cast<const std::uint8_t**>(frame.extended_data), frame.nb_samples);
  if (got < 0 ||
      av_audio_fifo_write(_fifo.get(), reinterpret_cast<void**>(converted->data), got) < got) {
    return false;
  }
  error.clear();
  return EncodeWhole(error);
}

bool AudioTranscoder::EncodeWhole(std::string& error) {
  const int samples = _frame->nb_samples;
  while (av_audio_fifo_size(_fifo.get()) >= samples) {
    if (av_frame_make_writable(_frame.get()) < 0) {
      error = "no memory for sound";
      return false;
    }
    av_audio_fifo_read(_fifo.get(), reinterpret_cast<void**>(_frame->data), samples);
    if (!_encoder.Encode(_frame.get(), TimeAt(_encoded), _output, error)) return false;
    _encoded += samples;
  }
  return true;
}

}  // namespace nimbo::capture::av
