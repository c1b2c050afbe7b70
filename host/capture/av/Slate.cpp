#include "host/capture/av/Slate.h"

#include <algorithm>

#include "base/reflect/Names.h"
#include "host/capture/Monotonic.h"
#include "host/capture/av/Decoder.h"
#include "host/capture/av/Drawing.h"
#include "host/capture/av/H264Encoder.h"
#include "host/capture/av/LibavLog.h"

namespace nimbo::capture::av {

namespace {

constexpr char Text[] = "NO SIGNAL";

/// What a picture may have at most.
constexpr std::int64_t BitRate = 2'000'000;
constexpr AVRational PicturesPerSecond = {2, 1};

/// profile_idc of ISO/IEC 14496-10, annex A.
constexpr struct {
  unsigned char number;
  const char* name;
} Profiles[] = {{66, "baseline"}, {77, "main"}};
constexpr char OtherProfile[] = "high";

bool Is(stream::IMedia* media, const char* codec) {
  return media && base::Hash(media->Codec()) == base::Hash(codec);
}

/// The first picture of a file.
Result<FramePtr> ReadPicture(const std::string& file) {
  AVFormatContext* opened = nullptr;
  if (Status done = StatusOf(avformat_open_input(&opened, file.c_str(), nullptr, nullptr)); !done) {
    return done;
  }
  const InputPtr input(opened);
  if (Status done = StatusOf(avformat_find_stream_info(input.get(), nullptr)); !done) return done;
  const int index = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  if (index < 0) return Status::Failed("it has no picture");
  Decoder decoder;
  if (Status done = decoder.Open(*input->streams[index]->codecpar); !done) return done;
  FramePtr picture;
  const auto take = [&picture](AVFrame& frame) {
    if (!picture) picture.reset(av_frame_clone(&frame));
    return Status();
  };
  const PacketPtr packet(av_packet_alloc());
  while (!picture && av_read_frame(input.get(), packet.get()) >= 0) {
    const bool wanted = packet->stream_index == index;
    Status done = wanted ? decoder.Decode(packet.get(), take) : Status();
    av_packet_unref(packet.get());
    if (!done) return done;
  }
  if (!picture) {
    if (Status done = decoder.Decode(nullptr, take); !done) return done;
  }
  if (!picture) return Status::Failed("it has no picture that can be decoded");
  return picture;
}

/// Puts a picture into the middle of another one, as large as it fits.
Status Place(const AVFrame& picture, AVFrame& frame) {
  const auto wide = std::int64_t{picture.width} * frame.height;
  const auto high = std::int64_t{picture.height} * frame.width;
  const auto even = [](std::int64_t value) { return std::max(static_cast<int>(value) & ~1, 2); };
  const int width = wide > high ? frame.width : even(wide / picture.height);
  const int height = wide > high ? even(high / picture.width) : frame.height;
  const int x = (frame.width - width) / 2 & ~1;
  const int y = (frame.height - height) / 2 & ~1;
  const ScalerPtr scaler(
      sws_getContext(picture.width, picture.height, static_cast<AVPixelFormat>(picture.format),
                     width, height, AV_PIX_FMT_YUV420P, SWS_BICUBIC, nullptr, nullptr, nullptr));
  if (!scaler) return Status::Failed("it cannot be converted");
  unsigned char* planes[] = {frame.data[0] + std::ptrdiff_t{y} * frame.linesize[0] + x,
                             frame.data[1] + std::ptrdiff_t{y / 2} * frame.linesize[1] + x / 2,
                             frame.data[2] + std::ptrdiff_t{y / 2} * frame.linesize[2] + x / 2};
  sws_scale(scaler.get(), picture.data, picture.linesize, 0, picture.height, planes,
            frame.linesize);
  return {};
}

}  // namespace

Status Slate::Load(const std::string& file) {
  _loaded.reset();
  if (file.empty()) return {};
  const LogScope log;
  auto picture = ReadPicture(file);
  if (!picture) {
    return Status::Failed("\"" + file + "\" cannot be shown: " + picture.Why() + log.Detail());
  }
  _loaded = std::move(*picture);
  return {};
}

Slate::Form Slate::FormOf(stream::IMedia& video) {
  Form form;
  unsigned char* sps = nullptr;
  unsigned int size = 0;
  video.GetIntT("w", form.width);
  video.GetIntT("h", form.height);
  form.width &= ~1;
  form.height &= ~1;
  form.profile = OtherProfile;
  if (video.Get("sps", sps) && sps && video.GetIntT("isps", size) && size > 1) {
    for (const auto& known : Profiles) {
      if (sps[1] == known.number) form.profile = known.name;
    }
  }
  return form;
}

Status Slate::Begin(stream::IMedia* video, stream::IMedia* audio) {
  _silent = false;
  if (Is(audio, "aac")) {
    int rate = 0, channels = 0;
    audio->GetIntT("rate", rate);
    audio->GetIntT("channel", channels);
    if (Status opened = _silence.Open(rate, std::clamp(channels, 1, 2)); !opened) return opened;
    _silent = true;
  }
  const bool shown = Is(video, "h264");
  const Form form = shown ? FormOf(*video) : Form();
  if (shown && form == _form) return {};
  _form = {};
  for (auto& encoded : _encoded) encoded.clear();
  if (!shown) return {};
  Status encoded = Encode(form);
  if (encoded) _form = form;
  return encoded;
}

Status Slate::Encode(const Form& form) {
  H264Encoder::Settings settings;
  settings.width = form.width;
  settings.height = form.height;
  settings.frameRate = PicturesPerSecond;
  settings.bitRate = BitRate;
  settings.gop = 1;
  settings.preset = "superfast";
  settings.profile = form.profile;
  H264Encoder encoder;
  if (Status opened = encoder.Open(settings); !opened) return opened;
  const FramePtr frame(encoder.NewFrame());
  if (!frame) return Status::Failed("no memory for a picture");
  if (Status drawn = Draw(*frame); !drawn) return drawn;
  StreamOutput output;
  for (std::size_t i = 0; i < _encoded.size(); ++i) {
    const std::int64_t time = static_cast<std::int64_t>(i) * NsPerSecond;
    if (Status encoded = encoder.Encode(*frame, time, true, output); !encoded) return encoded;
    if (output.Empty()) return Status::Failed("the encoder gave nothing");
    const auto packet = output.Take(0);
    _encoded[i].assign(packet->Data(), packet->Data() + packet->Size());
  }
  _pictures.SetMedia(encoder.NewMedia());
  return {};
}

Status Slate::Draw(AVFrame& frame) const {
  FillGrey(frame, _loaded ? Black : Grey);
  if (_loaded) return Place(*_loaded, frame);
  DrawText(frame, {frame.width / 4, 0, frame.width / 2, frame.height}, Text, sizeof Text - 1);
  return {};
}

Held<stream::Packet> Slate::Picture(std::int64_t time) {
  _pictures.Append({}, _encoded[_next], true, time);
  _next = (_next + 1) % _encoded.size();
  return _pictures.Take(0);
}

Held<stream::Packet> Slate::Sound(std::int64_t begin, std::int64_t end) {
  if (_silence.Output().Empty()) _silence.Fill(begin, end);
  return _silence.Output().Empty() ? nullptr : _silence.Output().Take(0);
}

}  // namespace nimbo::capture::av
