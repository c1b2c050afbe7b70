#include "tests/host/capture/av/MediaFile.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>

#include "host/capture/av/Libav.h"
#include "host/capture/av/LibavLog.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace nimbo::test {

using namespace capture::av;

namespace {

constexpr int Width = 320;
constexpr int Height = 180;
constexpr int FrameRate = 25;
constexpr int Gop = 12;

/// One encoder and its stream in the file.
class Track {
 public:
  Track(AVFormatContext& file, const AVCodec* encoder)
      : codec(avcodec_alloc_context3(encoder)), stream(avformat_new_stream(&file, nullptr)) {
    codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  }
  bool Open(const char* x264) {
    Dictionary options;
    if (*x264) options.Set("x264-params", x264);
    if (avcodec_open2(codec.get(), nullptr, options.Address()) < 0) return false;
    stream->time_base = codec->time_base;
    return avcodec_parameters_from_context(stream->codecpar, codec.get()) >= 0;
  }
  bool Encode(AVFormatContext& file, AVFrame* input, std::vector<Bytes>& packets) {
    if (avcodec_send_frame(codec.get(), input) < 0) return false;
    const PacketPtr packet(av_packet_alloc());
    while (avcodec_receive_packet(codec.get(), packet.get()) >= 0) {
      packets.emplace_back(packet->data, packet->data + packet->size);
      packet->stream_index = stream->index;
      // Without it the last picture would last no time and be left out by an edit list.
      if (codec->codec_type == AVMEDIA_TYPE_VIDEO) packet->duration = 1;
      av_packet_rescale_ts(packet.get(), codec->time_base, stream->time_base);
      if (av_interleaved_write_frame(&file, packet.get()) < 0) return false;
    }
    return true;
  }

  CodecPtr codec;
  AVStream* stream;
  FramePtr frame{av_frame_alloc()};
};

std::unique_ptr<Track> NewVideo(AVFormatContext& file, const MediaForm& form) {
  auto track = std::make_unique<Track>(file, avcodec_find_encoder_by_name(form.video));
  AVCodecContext& codec = *track->codec;
  codec.width = Width;
  codec.height = Height;
  codec.pix_fmt = AV_PIX_FMT_YUV420P;
  codec.time_base = {1, FrameRate};
  codec.framerate = {FrameRate, 1};
  codec.gop_size = Gop;
  codec.max_b_frames = form.bFrames;
  codec.thread_count = 1;
  track->frame->format = codec.pix_fmt;
  track->frame->width = Width;
  track->frame->height = Height;
  av_frame_get_buffer(track->frame.get(), 0);
  return track->Open(form.x264) ? std::move(track) : nullptr;
}

std::unique_ptr<Track> NewAudio(AVFormatContext& file, const MediaForm& form) {
  const AVCodec* encoder = avcodec_find_encoder_by_name(form.audio);
  auto track = std::make_unique<Track>(file, encoder);
  AVCodecContext& codec = *track->codec;
  codec.sample_rate = form.rate;
  codec.sample_fmt = AV_SAMPLE_FMT_FLTP;
  codec.time_base = {1, form.rate};
  av_channel_layout_default(&codec.ch_layout, form.channels);
  if (!track->Open("")) return nullptr;
  track->frame->format = codec.sample_fmt;
  track->frame->sample_rate = form.rate;
  track->frame->nb_samples = codec.frame_size;
  av_channel_layout_copy(&track->frame->ch_layout, &codec.ch_layout);
  av_frame_get_buffer(track->frame.get(), 0);
  return track;
}

/// A slope that moves.
void Draw(AVFrame& frame, int number) {
  av_frame_make_writable(&frame);
  for (int plane = 0; plane < 3; ++plane) {
    const int height = plane == 0 ? Height : Height / 2;
    for (int y = 0; y < height; ++y) {
      std::memset(frame.data[plane] + y * frame.linesize[plane], (y + 5 * number) & 0xFF,
                  static_cast<std::size_t>(plane == 0 ? Width : Width / 2));
    }
  }
  frame.pts = number;
}

/// A sound that rises and falls, starting with the sample `first`.
void Play(AVFrame& frame, std::int64_t first) {
  constexpr std::int64_t Period = 100;
  av_frame_make_writable(&frame);
  for (int channel = 0; channel < frame.ch_layout.nb_channels; ++channel) {
    auto* samples = reinterpret_cast<float*>(frame.data[channel]);
    for (int i = 0; i < frame.nb_samples; ++i) {
      samples[i] = static_cast<float>((first + i) % Period) / Period - 0.5F;
    }
  }
  frame.pts = first;
}

}  // namespace

Encoded WriteMedia(const std::string& url, const MediaForm& form) {
  InstallLogFilter();
  Encoded encoded;
  AVFormatContext* raw = nullptr;
  if (avformat_alloc_output_context2(&raw, nullptr, form.format, url.c_str()) < 0) return encoded;
  const std::unique_ptr<AVFormatContext, FreeByPointer<avformat_free_context>> file(raw);
  std::unique_ptr<Track> video;
  std::unique_ptr<Track> audio;
  if (*form.video && !(video = NewVideo(*file, form))) return encoded;
  if (*form.audio && !(audio = NewAudio(*file, form))) return encoded;
  if (avio_open(&file->pb, url.c_str(), AVIO_FLAG_WRITE) < 0) return encoded;
  bool written = avformat_write_header(file.get(), nullptr) >= 0;
  std::int64_t samples = 0;
  for (int picture = 0; written && picture < form.pictures; ++picture) {
    if (video) {
      Draw(*video->frame, picture);
      written = video->Encode(*file, video->frame.get(), encoded.video);
    }
    while (audio && written && samples * FrameRate < std::int64_t{picture} * form.rate) {
      Play(*audio->frame, samples);
      samples += audio->frame->nb_samples;
      written = audio->Encode(*file, audio->frame.get(), encoded.audio);
    }
  }
  if (written && video) written = video->Encode(*file, nullptr, encoded.video);
  if (written && audio) written = audio->Encode(*file, nullptr, encoded.audio);
  encoded.written = written && av_write_trailer(file.get()) >= 0;
  avio_closep(&file->pb);
  return encoded;
}

TemporaryFile::TemporaryFile(const std::string& name)
    : _path(testing::TempDir() + std::to_string(getpid()) + "-" + name) {}

TemporaryFile::~TemporaryFile() { std::remove(_path.c_str()); }

}  // namespace nimbo::test
