#include "plugin/live/LiveSender.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "log/Line.h"
#include "nimbo/base/exit_call.h"
#include "plugin/bytes/Amf0Writer.h"
#include "plugin/bytes/NalUnits.h"
#include "plugin/element/VfpBracket.h"

namespace nimbo::plugin::live {

using log::Colour;
using log::Failure;
using log::Line;
using log::Site;
using stream::IMedia;
using stream::Packet;

namespace {

/// All media go out on one chunk stream.
constexpr int MediaChannel = 4;
constexpr int ControlChannel = 2;  // RTMP 1.0, 5.4: protocol control messages

constexpr std::int64_t Milliseconds(std::int64_t nanoseconds) { return nanoseconds / 1000000; }

/// Codecs that the connect command offers, in the order in which it does.
constexpr LiveCodec Offered[] = {LiveCodec::Avc,  LiveCodec::Hevc, LiveCodec::Av1, LiveCodec::Aac,
                                 LiveCodec::Opus, LiveCodec::Flac, LiveCodec::Ac3, LiveCodec::Eac3};

bool StartsWith(const std::string& text, const char* start) {
  return text.compare(0, std::strlen(start), start) == 0;
}

}  // namespace

// ---- session ------------------------------------------------------------------------------------

bool LiveSender::Connect(const std::string& url, const LiveSettings& settings) {
  const VfpBracket bracket;
  _settings = settings;
  _video = {};
  _audio = {};
  _origin.reset();
  _lost = false;
  SessionOptions options;
  options.answers = true;
  if (settings.enhanced) {
    for (const LiveCodec codec : Offered) options.codecs.emplace_back(FourCcOf(codec));
  }
  _rtmp.SetOptions(std::move(options));
  if (!_rtmp.Allocate()) return Failure(Site::Here(), "!_rtmp.Allocate()");
  base::ExitCall free([this] { _rtmp.Free(); });
  if (const Status usable = _rtmp.SetupUrl(url.c_str()); !usable) {
    Explain(usable.Why());
    return Failure(Site::Here(), "!_rtmp.SetupUrl(url)");
  }
  _rtmp.EnableWrite();
  if (!Steps()) return false;
  free.Clear();
  return true;
}

bool LiveSender::Steps() {
  if (const Status connected = _rtmp.Connect(); !connected) {
    Explain(connected.Why());
    return Failure(Site::Here(), "!_rtmp.Connect()");
  }
  if (const Status streaming = _rtmp.ConnectStream(); !streaming) {
    Explain(streaming.Why());
    _rtmp.Close();
    return Failure(Site::Here(), "!_rtmp.ConnectStream()");
  }
  Explain(_rtmp.TakeWarning());
  _lag.Restart();
  return AnnounceChunkSize(_settings.chunk) ||
         Failure(Site::Here(), "!AnnounceChunkSize(_settings.chunk)");
}

bool LiveSender::AnnounceChunkSize(int size) {
  constexpr std::size_t BodySize = 4;
  unsigned char room[RTMP_MAX_HEADER_SIZE + BodySize];
  ByteWriter(room + RTMP_MAX_HEADER_SIZE).u32(static_cast<std::size_t>(size));
  RTMPPacket packet = {};
  packet.m_headerType = RTMP_PACKET_SIZE_LARGE;
  packet.m_packetType = static_cast<std::uint8_t>(MessageType::SetChunkSize);
  packet.m_nChannel = ControlChannel;
  packet.m_nBodySize = BodySize;
  packet.m_body = reinterpret_cast<char*>(room) + RTMP_MAX_HEADER_SIZE;
  // It counts from the next message on; this one fits any.
  const Status sent = _rtmp.Send(packet, false);
  if (sent) _rtmp.SetOutChunkSize(size);
  return static_cast<bool>(sent);
}

void LiveSender::Disconnect() {
  const VfpBracket bracket;
  _rtmp.Disconnect();
}

std::string LiveSender::TakeRedirection(const std::string& url) {
  const ReconnectRequest request = _rtmp.TakeReconnect();
  if (!request.made) return {};
  Line line(Colour::Yellow, Site::Here());
  line << "the server asks for a new connection";
  if (request.url.empty()) return url;
  // Nobody is led away from a server that was checked to one that is not.
  const bool secure = StartsWith(url, "rtmps://");
  if (!StartsWith(request.url, "rtmps://") && (secure || !StartsWith(request.url, "rtmp://"))) {
    line << ", at an address that cannot be trusted: the one before is used";
    return url;
  }
  line << " at another address";
  // The application's address is the server's, the stream's name stays.
  const std::size_t stream = url.rfind('/', url.find('?'));
  return request.url + (request.url.back() == '/' ? "" : "/") + url.substr(stream + 1);
}

void LiveSender::Explain(const std::string& why) {
  // While a server stays away, every attempt fails for the same reason.
  if (!why.empty() && why != _explained) Line(Colour::Yellow, Site::Here()) << why;
  if (!why.empty()) _explained = why;
}

// ---- packets ------------------------------------------------------------------------------------

LiveSender::Outcome LiveSender::Send(const Packet& packet, IMedia& media) {
  const VfpBracket bracket;
  if (const Status heard = _rtmp.Listen(); !heard) {
    Explain(heard.Why());
    return Outcome::Failed;
  }
  const auto codec = CodecOf(media.Codec());
  const bool sendable = codec && (_settings.enhanced || !IsEnhanced(*codec));
  if (!sendable || !packet.Data()) {
    if (!std::exchange(_refused, true)) {
      Failure(Site::Here(), "!sendable || !packet.Data()", "cannot send ", media.Codec(),
              codec ? ": it takes a server of Enhanced RTMP; set enhanced=true" : "");
    }
    return Drop();
  }
  Track& track = IsVideo(*codec) ? _video : _audio;
  if (!Follow(track, media, *codec)) return Drop();
  if (IsVideo(*codec) && !Continues(track, packet)) return Drop();
  const std::uint32_t time = TimeOf(packet);
  const bool sent = Announce(track, time) && (IsVideo(*codec) ? SendPicture(track, packet, time)
                                                              : SendSound(track, packet, time));
  if (!sent) return Outcome::Failed;
  _lag.Wrote(LagMeter::Clock::now(), [this] { return _rtmp.Progress(); });
  return Outcome::Sent;
}

LiveSender::Outcome LiveSender::Drop() {
  ++_dropped;
  return Outcome::Dropped;
}

bool LiveSender::Follow(Track& track, IMedia& media, LiveCodec codec) {
  if (track.media.get() != &media) {
    track.media = Share(media);
    track.format = ReadFormat(media, codec);
    if (!track.format) Failure(Site::Here(), "!track.format", "the media tells no configuration");
  }
  return track.format.has_value();
}

bool LiveSender::Continues(Track& track, const Packet& packet) {
  const bool gap = track.numbered && packet.Sequence() != track.sequence + 1;
  track.sequence = packet.Sequence();
  track.numbered = true;
  if (gap) _lost = true;
  if (packet.IsKey()) _lost = false;
  return !_lost && (track.begun || packet.IsKey());
}

std::uint32_t LiveSender::TimeOf(const Packet& packet) {
  const std::int64_t time = Milliseconds(packet.TimeStamp());
  if (!_origin) _origin = time;
  // The other stream's first packet may be a little older.
  return static_cast<std::uint32_t>(std::max<std::int64_t>(0, time - *_origin));
}

bool LiveSender::SendPicture(const Track& track, const Packet& packet, std::uint32_t time) {
  const StreamFormat& format = *track.format;
  const Bytes data = {packet.Data(), packet.Size()};
  // Of both times what is left of a millisecond counts.
  constexpr std::int64_t PerMicrosecond = 1000;
  constexpr std::int64_t PerMillisecond = 1000000;
  const std::int64_t presented =
      packet.TimeStamp() % PerMillisecond + format.composition * PerMicrosecond;
  unsigned char header[MaxLiveHeader];
  const std::size_t headerSize =
      WritePictureHeader(header, format.codec, packet.IsKey(), Milliseconds(presented));
  Bytes picture = WithoutTemporalDelimiter(data);
  if (format.codec != LiveCodec::Av1) {
    const std::size_t bound = LengthPrefixedBound(data.size);
    if (_body.size() < bound) _body.resize(bound);
    picture = {_body.data(), WriteLengthPrefixed(_body.data(), data)};
  }
  if (picture.size == 0) return true;
  return SendMessage(MessageType::Video, time, {header, headerSize}, picture);
}

bool LiveSender::SendSound(const Track& track, const Packet& packet, std::uint32_t time) {
  const StreamFormat& format = *track.format;
  const auto skip = static_cast<std::size_t>(std::max(0, format.adtsLength));
  if (skip >= packet.Size()) return true;  // a header and nothing behind it
  unsigned char header[MaxLiveHeader];
  const std::size_t headerSize = WriteSoundHeader(header, format.codec);
  return SendMessage(MessageType::Audio, time, {header, headerSize},
                     {packet.Data() + skip, packet.Size() - skip});
}

// ---- configuration ------------------------------------------------------------------------------

bool LiveSender::Announce(Track& track, std::uint32_t time) {
  const StreamFormat& format = *track.format;
  if (track.begun && track.announced == format.config) return true;
  if (!track.begun) {
    track.begun = true;
    if (IsEnhanced(format.codec)) WarnOfCodec(format.codec);
  }
  track.announced = format.config;
  if (_settings.metadata && !SendMetadata(time)) return false;
  if (format.config.empty()) return true;
  unsigned char header[MaxLiveHeader];
  const std::size_t headerSize = WriteSequenceStart(header, format.codec);
  const MessageType type = IsVideo(format.codec) ? MessageType::Video : MessageType::Audio;
  return SendMessage(type, time, {header, headerSize},
                     {format.config.data(), format.config.size()});
}

bool LiveSender::SendMetadata(std::uint32_t time) {
  std::vector<std::pair<const char*, double>> known;
  const auto add = [&known](const char* name, double value) {
    if (value > 0) known.emplace_back(name, value);
  };
  if (_video.begun && _video.format) {
    add("width", _video.format->width);
    add("height", _video.format->height);
    add("videocodecid", CodecNumber(_video.format->codec));
  }
  if (_audio.begun && _audio.format) {
    add("audiosamplerate", _audio.format->rate);
    add("audiochannels", _audio.format->channels);
    add("audiocodecid", CodecNumber(_audio.format->codec));
  }
  Amf0Writer data;
  data.Text("@setDataFrame");
  data.Text("onMetaData");
  data.ArrayBegins(static_cast<std::uint32_t>(known.size()));
  for (const auto& [name, value] : known) {
    data.Name(name);
    data.Number(value);
  }
  data.ArrayEnds();
  return SendMessage(MessageType::Data, time, {}, {data.Written().data(), data.Written().size()});
}

void LiveSender::WarnOfCodec(LiveCodec codec) {
  const std::string name = FourCcOf(codec);
  const auto& listed = _rtmp.ServerCodecs();
  const bool known = std::any_of(listed.begin(), listed.end(),
                                 [&](const std::string& one) { return one == name || one == "*"; });
  if (known) return;
  Explain(listed.empty()
              ? "the server does not say that it knows Enhanced RTMP: where it does not, "
                "players of this stream show nothing"
              : "the server does not list " + name +
                    " among the codecs that it takes: players of this stream may show "
                    "nothing");
}

// ---- messages -----------------------------------------------------------------------------------

bool LiveSender::SendMessage(MessageType type, std::uint32_t time, Bytes head, Bytes tail) {
  const std::size_t size = head.size + tail.size;
  if (size > MaxMessageBody) return Failure(Site::Here(), "size > MaxMessageBody", "size=", size);
  Status sent;
  if (_rtmp.CanSendInPlace()) {
    sent = _rtmp.SendInPlace(MediaChannel, type, time, head, tail);
  } else {
    if (_room.size() < RTMP_MAX_HEADER_SIZE + size) _room.resize(RTMP_MAX_HEADER_SIZE + size);
    ByteWriter body(_room.data() + RTMP_MAX_HEADER_SIZE);
    body.bytes(head);
    body.bytes(tail);
    RTMPPacket packet = {};
    packet.m_headerType = RTMP_PACKET_SIZE_LARGE;
    packet.m_packetType = static_cast<std::uint8_t>(type);
    packet.m_nChannel = MediaChannel;
    packet.m_nTimeStamp = time;
    packet.m_nInfoField2 = _rtmp.StreamId();
    packet.m_nBodySize = static_cast<std::uint32_t>(size);
    packet.m_body = reinterpret_cast<char*>(_room.data()) + RTMP_MAX_HEADER_SIZE;
    sent = _rtmp.Send(packet, false);
  }
  if (!sent) Explain(sent.Why());
  return static_cast<bool>(sent);
}

}  // namespace nimbo::plugin::live
