#include "host/elements/av/MovieFile.h"

#include <cstring>
#include <initializer_list>
#include <utility>

#include "host/capture/Adts.h"
#include "nimbo/base/names.h"

namespace nimbo::stream {

using capture::av::Dictionary;
using capture::av::NanosecondBase;
using capture::av::StatusOf;

namespace {

/// A file that is cut off lacks no more than so many microseconds.
constexpr char LongestFragment[] = "1000000";
constexpr AVRational MicrosecondBase = {1, 1000000};

enum Track : std::size_t { Pictures, Sound };

int IntOf(IMedia& media, const char* name) {
  int value = 0;
  media.GetIntT(name, value);
  return value;
}

/// The bytes of the parameter `name`, whose number is the parameter `size`.
std::string BytesOf(IMedia& media, const char* name, const char* size) {
  unsigned char* bytes = nullptr;
  const int count = IntOf(media, size);
  if (count <= 0 || !media.Get(name, bytes) || !bytes) return {};
  return {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count)};
}

/// Both parameter sets in Annex B form, which the muxer understands.
std::string PictureConfig(IMedia& media) {
  constexpr char StartCode[] = {0, 0, 0, 1};
  std::string config;
  for (const auto& [name, size] : {std::pair("sps", "isps"), {"pps", "ipps"}}) {
    const std::string set = BytesOf(media, name, size);
    if (set.empty()) return {};
    config.append(StartCode, sizeof StartCode).append(set);
  }
  return config;
}

/// AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1).
std::string SoundConfig(IMedia& media) {
  std::string own = BytesOf(media, "config", "iconfig");
  if (!own.empty()) return own;
  const int rate = capture::AacRateIndex(IntOf(media, "rate"));
  const int channels = IntOf(media, "channel");
  if (rate < 0 || channels <= 0) return {};
  const int type = IntOf(media, "profile") + 1;
  const int bits = type << 11 | rate << 7 | channels << 3;
  return {static_cast<char>(bits >> 8), static_cast<char>(bits & 0xFF)};
}

bool Is(const IMedia& media, const char* codec) {
  return base::Hash(media.Codec()) == base::Hash(codec);
}

}  // namespace

bool IsPicture(const IMedia& media) { return Is(media, "h264"); }
bool IsSound(const IMedia& media) { return Is(media, "aac"); }

bool SameStream(IMedia& one, IMedia& other) {
  if (&one == &other) return true;
  return IsPicture(one) ? PictureConfig(one) == PictureConfig(other)
                        : SoundConfig(one) == SoundConfig(other);
}

MovieFile::~MovieFile() { (void)Close(); }

void MovieFile::CloseFile::operator()(AVFormatContext* format) const {
  avio_closep(&format->pb);
  avformat_free_context(format);
}

Status MovieFile::Open(const std::string& path, IMedia* video, IMedia* audio, std::int64_t start) {
  AVFormatContext* format = nullptr;
  if (Status made = StatusOf(avformat_alloc_output_context2(&format, nullptr, "mp4", nullptr));
      !made) {
    return made;
  }
  _format.reset(format);
  _packet.reset(av_packet_alloc());
  _tracks = {};
  _start = start;
  const auto begin = [&]() -> Status {
    if (!_packet) return StatusOf(AVERROR(ENOMEM));
    if (video) {
      if (Status added = AddTrack(*video, AV_CODEC_ID_H264); !added) return added;
    }
    if (audio) {
      if (Status added = AddTrack(*audio, AV_CODEC_ID_AAC); !added) return added;
    }
    const std::string url = "file:" + path;
    if (Status opened = StatusOf(avio_open(&_format->pb, url.c_str(), AVIO_FLAG_WRITE)); !opened) {
      return opened;
    }
    Dictionary options;
    options.Set("movflags", "+frag_keyframe+empty_moov+default_base_moof");
    options.Set("frag_duration", LongestFragment);
    options.Set("flush_packets", "1");
    return StatusOf(avformat_write_header(_format.get(), options.Address()));
  };
  Status begun = begin();
  if (!begun) _format.reset();
  return begun;
}

Status MovieFile::AddTrack(IMedia& media, AVCodecID codec) {
  AVStream* track = avformat_new_stream(_format.get(), nullptr);
  if (!track) return StatusOf(AVERROR(ENOMEM));
  const bool pictures = codec == AV_CODEC_ID_H264;
  const std::string config = pictures ? PictureConfig(media) : SoundConfig(media);
  if (config.empty()) return Status::Failed("a stream does not tell its configuration");
  AVCodecParameters& parameters = *track->codecpar;
  parameters.codec_id = codec;
  parameters.codec_type = pictures ? AVMEDIA_TYPE_VIDEO : AVMEDIA_TYPE_AUDIO;
  parameters.extradata =
      static_cast<std::uint8_t*>(av_mallocz(config.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (!parameters.extradata) return StatusOf(AVERROR(ENOMEM));
  std::memcpy(parameters.extradata, config.data(), config.size());
  parameters.extradata_size = static_cast<int>(config.size());
  if (pictures) {
    parameters.width = IntOf(media, "w");
    parameters.height = IntOf(media, "h");
  } else {
    parameters.sample_rate = IntOf(media, "rate");
    av_channel_layout_default(&parameters.ch_layout, IntOf(media, "channel"));
    parameters.frame_size = capture::AacFrameSamples;
  }
  _tracks[pictures ? Pictures : Sound] = track;
  return {};
}

Status MovieFile::Write(const Packet& packet) {
  IMedia& media = *packet.Media();
  const AVStream* track = IsPicture(media) ? _tracks[Pictures]
                          : IsSound(media) ? _tracks[Sound]
                                           : nullptr;
  const int header = IsSound(media) ? IntOf(media, "adtslen") : 0;
  const int size = static_cast<int>(packet.Size()) - header;
  if (!track || size <= 0 || packet.TimeStamp() < _start) return {};
  // The muxer keeps what it cannot write yet: it needs bytes of its own.
  if (Status grown = StatusOf(av_new_packet(_packet.get(), size)); !grown) return grown;
  std::memcpy(_packet->data, packet.Data() + header, static_cast<std::size_t>(size));
  _packet->stream_index = track->index;
  if (packet.IsKey() || header > 0) _packet->flags |= AV_PKT_FLAG_KEY;
  _packet->dts = av_rescale_q(packet.TimeStamp() - _start, NanosecondBase, track->time_base);
  _packet->pts =
      _packet->dts + av_rescale_q(IntOf(media, "cto"), MicrosecondBase, track->time_base);
  Status written = StatusOf(av_write_frame(_format.get(), _packet.get()));
  av_packet_unref(_packet.get());
  if (!written) return written;
  // What the file itself refuses is noticed when its buffer is emptied.
  return StatusOf(_format->pb->error);
}

Status MovieFile::Close() {
  if (!_format) return {};
  Status ended = StatusOf(av_write_trailer(_format.get()));
  if (ended) ended = StatusOf(_format->pb->error);
  _format.reset();
  return ended;
}

}  // namespace nimbo::stream
