#include "host/capture/av/Decoder.h"

namespace nimbo::capture::av {

namespace {

/// Pictures of more elements are decoded by all processors, at the price of a longer delay.
constexpr int LargePicture = 1280 * 720;

}  // namespace

bool Decoder::Open(const AVCodecParameters& parameters, std::string& error) {
  const AVCodec* decoder = avcodec_find_decoder(parameters.codec_id);
  if (!decoder) {
    error = std::string("libavcodec has no decoder for ") + avcodec_get_name(parameters.codec_id);
    return false;
  }
  _codec.reset(avcodec_alloc_context3(decoder));
  _frame.reset(av_frame_alloc());
  int result = avcodec_parameters_to_context(_codec.get(), &parameters);
  _codec->pkt_timebase = NanosecondBase;
  _codec->thread_count = parameters.width * parameters.height > LargePicture ? 0 : 1;
  if (result >= 0) result = avcodec_open2(_codec.get(), decoder, nullptr);
  if (result < 0) error = ErrorText(result);
  return result >= 0;
}

bool Decoder::Decode(AVPacket* packet, std::string& error, const Take& take) {
  int result = avcodec_send_packet(_codec.get(), packet);
  while (result >= 0) {
    result = avcodec_receive_frame(_codec.get(), _frame.get());
    if (result < 0) break;
    _frame->pts = _frame->best_effort_timestamp;
    if (!take(*_frame)) return false;
    av_frame_unref(_frame.get());
  }
  if (result == AVERROR(EAGAIN) || result == AVERROR_EOF || result == AVERROR_INVALIDDATA) {
    return true;
  }
  error = ErrorText(result);
  return false;
}

}  // namespace nimbo::capture::av
