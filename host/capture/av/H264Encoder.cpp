#include "host/capture/av/H264Encoder.h"

#include "host/stream/Media.h"

namespace nimbo::capture::av {

namespace {

constexpr char EncoderName[] = "libx264";

/// What makes the stream describable, whatever its quality settings are.
constexpr struct {
  const char* key;
  const char* value;
} Shape[] = {
    {"tune", "zerolatency"},
    {"forced-idr", "1"},
    {"x264-params", "sliced-threads=0:scenecut=0:bframes=0"},
};

}  // namespace

Status H264Encoder::Open(const Settings& settings) {
  const AVCodec* encoder = avcodec_find_encoder_by_name(EncoderName);
  if (!encoder) return Status::Failed(std::string("libavcodec has no encoder ") + EncoderName);
  _codec.reset(avcodec_alloc_context3(encoder));
  _packet.reset(av_packet_alloc());
  AVCodecContext& codec = *_codec;
  codec.width = settings.width;
  codec.height = settings.height;
  codec.pix_fmt = AV_PIX_FMT_YUV420P;
  codec.color_range = AVCOL_RANGE_MPEG;
  codec.framerate = settings.frameRate;
  codec.time_base = NanosecondBase;
  _bit_rate = settings.bitRate;
  FollowBitRate();
  codec.gop_size = settings.gop;
  codec.keyint_min = settings.gop;
  codec.max_b_frames = 0;
  codec.slices = 1;
  // Several threads would cut the picture into slices or hold pictures back.
  codec.thread_count = 1;
  // The sets are wanted before the first picture; they are put in front of key frames here.
  codec.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  Dictionary options;
  options.Set("preset", settings.preset);
  options.Set("profile", settings.profile);
  for (const auto& option : Shape) options.Set(option.key, option.value);
  Status opened = StatusOf(avcodec_open2(&codec, encoder, options.Address()));
  if (!opened) return opened;
  _sets = {};
  if (codec.extradata_size > 0) {
    _sets.AddAll({codec.extradata, static_cast<std::size_t>(codec.extradata_size)});
  }
  if (_sets.Sps().size() != 1 || _sets.Pps().size() != 1) {
    return Status::Failed(std::string(EncoderName) + " gave no parameter sets");
  }
  _header.clear();
  AppendUnit(_header, _sets.Sps().front());
  AppendUnit(_header, _sets.Pps().front());
  return {};
}

void H264Encoder::Close() {
  _codec.reset();
  _packet.reset();
}

void H264Encoder::FollowBitRate() {
  const std::int64_t wanted = _bit_rate;
  if (_codec->bit_rate == wanted) return;
  // libx264 looks at these in front of each picture.
  _codec->bit_rate = wanted;
  _codec->rc_max_rate = wanted;
  _codec->rc_buffer_size = static_cast<int>(wanted);
}

Held<stream::IMedia> H264Encoder::NewMedia() const {
  return stream::NewH264Media(_codec->width, _codec->height, _sets.Sps().front(),
                              _sets.Pps().front());
}

AVFrame* H264Encoder::NewFrame() const {
  FramePtr frame(av_frame_alloc());
  frame->format = _codec->pix_fmt;
  frame->width = _codec->width;
  frame->height = _codec->height;
  if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
  return frame.release();
}

Status H264Encoder::Encode(AVFrame& frame, std::int64_t time, bool key, StreamOutput& output) {
  FollowBitRate();
  frame.pts = time;
  frame.pict_type = key ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
  int result = avcodec_send_frame(_codec.get(), &frame);
  while (result >= 0) {
    result = avcodec_receive_packet(_codec.get(), _packet.get());
    if (result == AVERROR(EAGAIN)) return {};
    if (result < 0) break;
    const bool isKey = (_packet->flags & AV_PKT_FLAG_KEY) != 0;
    output.Append(isKey ? ByteSpan(_header) : ByteSpan(), BytesOf(*_packet), isKey, _packet->pts);
    av_packet_unref(_packet.get());
  }
  return StatusOf(result);
}

}  // namespace nimbo::capture::av
