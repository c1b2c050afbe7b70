#include "host/capture/av/Decoder.h"

namespace nimbo::capture::av {

namespace {

/// Pictures of more elements are decoded by all processors, at the price of a longer delay.
constexpr int LargePicture = 1280 * 720;

}  // namespace

Status Decoder::Open(const AVCodecParameters& parameters) {
  const AVCodec* decoder = avcodec_find_decoder(parameters.codec_id);
  if (!decoder) {
    return Status::Failed(std::string("libavcodec has no decoder for ") +
                          avcodec_get_name(parameters.codec_id));
  }
  _codec.reset(avcodec_alloc_context3(decoder));
  _frame.reset(av_frame_alloc());
  int result = avcodec_parameters_to_context(_codec.get(), &parameters);
  _codec->pkt_timebase = NanosecondBase;
  _codec->thread_count = parameters.width * parameters.height > LargePicture ? 0 : 1;
  if (result >= 0) result = avcodec_open2(_codec.get(), decoder, nullptr);
  return StatusOf(result);
}

Status Decoder::Decode(AVPacket* packet, const Take& take) {
  int result = avcodec_send_packet(_codec.get(), packet);
  while (result >= 0) {
    result = avcodec_receive_frame(_codec.get(), _frame.get());
    if (result < 0) break;
    _frame->pts = _frame->best_effort_timestamp;
    if (Status taken = take(*_frame); !taken) return taken;
    av_frame_unref(_frame.get());
  }
  if (result == AVERROR(EAGAIN) || result == AVERROR_EOF || result == AVERROR_INVALIDDATA) {
    return {};
  }
  return StatusOf(result);
}

}  // namespace nimbo::capture::av
