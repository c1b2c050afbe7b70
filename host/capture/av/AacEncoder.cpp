#include "host/capture/av/AacEncoder.h"

#include "host/stream/Media.h"

namespace nimbo::capture::av {

bool AppendAac(StreamOutput& output, ByteSpan frame, int rate, int channels, std::int64_t time) {
  if (frame.size() + AdtsHeaderSize > AdtsLongestFrame) return false;
  const auto header = MakeAdtsHeader(rate, channels, frame.size());
  // Every frame can be decoded for itself, but only pictures are asked for it.
  output.Append(header, frame, true, time);
  return true;
}

Status AacEncoder::Open(int rate, int channels, std::int64_t bitRate) {
  const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_AAC);
  if (!encoder) return Status::Failed("libavcodec has no encoder for AAC");
  _codec.reset(avcodec_alloc_context3(encoder));
  _packet.reset(av_packet_alloc());
  AVCodecContext& codec = *_codec;
  codec.sample_rate = rate;
  av_channel_layout_default(&codec.ch_layout, channels);
  codec.sample_fmt = AV_SAMPLE_FMT_FLTP;
  codec.bit_rate = bitRate;
  codec.profile = AacLowComplexity;
  codec.time_base = NanosecondBase;
  Dictionary options;
  // The encoder's default search costs several times as much.
  options.Set("aac_coder", "fast");
  return StatusOf(avcodec_open2(&codec, encoder, options.Address()));
}

Held<stream::IMedia> AacEncoder::NewMedia() const {
  return stream::NewAacMedia(AdtsHeaderSize, AacLowComplexity, Channels(), Rate());
}

AVFrame* AacEncoder::NewFrame() const {
  FramePtr frame(av_frame_alloc());
  frame->format = _codec->sample_fmt;
  frame->sample_rate = _codec->sample_rate;
  frame->nb_samples = AacFrameSamples;
  if (av_channel_layout_copy(&frame->ch_layout, &_codec->ch_layout) < 0) return nullptr;
  if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
  return frame.release();
}

Status AacEncoder::Encode(AVFrame* frame, std::int64_t time, StreamOutput& output) {
  if (frame) frame->pts = time;
  int result = avcodec_send_frame(_codec.get(), frame);
  while (result >= 0) {
    result = avcodec_receive_packet(_codec.get(), _packet.get());
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return {};
    if (result < 0) break;
    if (!AppendAac(output, BytesOf(*_packet), Rate(), Channels(), _packet->pts)) {
      return Status::Failed("a frame is too long for its header");
    }
    av_packet_unref(_packet.get());
  }
  return StatusOf(result);
}

}  // namespace nimbo::capture::av
