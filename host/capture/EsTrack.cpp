#include "host/capture/EsTrack.h"

#include <algorithm>
#include <utility>

#include "host/base/Console.h"
#include "host/stream/Media.h"

namespace nimbo::capture {

namespace {

constexpr FrameRate UsualRate{30, 1};
constexpr int MaxChannels = 2;
/// How much of a file is looked at when it is opened.
constexpr std::uint64_t SurveyedBytes = std::uint64_t{2} * 1024 * 1024;
/// How far the first start code, or the first parameter sets, may stand from the front.
constexpr std::uint64_t SearchLimit = std::uint64_t{4} * 1024 * 1024;

/// Takes a parameter set over. False when there is none, or it is the one that is known.
bool Renew(std::vector<unsigned char>& known, ByteSpan set) {
  if (set.empty() || std::ranges::equal(known, set)) return false;
  known.assign(set.begin(), set.end());
  return true;
}

std::string Shown(const std::string& path) { return path == "-" ? "standard input" : path; }

}  // namespace

EsTrack::~EsTrack() { Close(); }

Status EsTrack::Open() {
  const Status opened = _window.Open(_path);
  return opened ? opened : Refuse(opened.Why());
}

Status EsTrack::Begin() {
  Reset();
  const std::int64_t due = MonotonicNow() + _patience;
  _window.SetDeadline(due);
  auto first = Peek();
  _window.SetDeadline(Never);
  if (!first) return first.Failure();
  if (*first == Reading::End) return Refuse("the file is empty");
  if (*first == Reading::Aborted && MonotonicNow() >= due) {
    return Refuse("no frame came within " + InSeconds(_patience) +
                  ": start what writes it, or give it longer with wait=SECONDS");
  }
  if (*first == Reading::Ready && _window.Seekable()) {
    Survey();
    first = Peek();
  }
  return first && *first == Reading::Ready ? Status() : Status::Failed();
}

/// Passes over the first frames of a file for what is to be said about them, and goes back.
void EsTrack::Survey() {
  Frame frame;
  while (_window.Offset() < SurveyedBytes) {
    auto found = Find(frame);
    if (!found || *found != Reading::Ready) break;  // which is told when it is read again
  }
  SetMedia(nullptr);  // it may have changed
  (void)Rewind();     // a file can be
}

void EsTrack::Close() {
  _warned = false;
  _window.Close();
  SetMedia(nullptr);
  _found = false;
  _frames = 0;
  _sequence = 1;
}

Result<Reading> EsTrack::Peek() {
  if (_found) return Reading::Ready;
  auto found = Find(_frame);
  if (!found) return Refuse(found.Why());
  _found = *found == Reading::Ready;
  return found;
}

Held<stream::Packet> EsTrack::Take(std::int64_t base) {
  const auto size = static_cast<unsigned int>(_frame.bytes.size());
  Held<stream::HostPacket> packet = _pool.New(size);
  std::ranges::copy(_frame.bytes, packet->Bytes());
  packet->Describe(size, _frame.key, base + Time(), _sequence++, _media.get());
  ++_frames;
  _found = false;
  return packet;
}

Status EsTrack::Rewind() {
  if (!_window.Rewind()) return Refuse("only a file can be played again");
  Reset();
  _frames = 0;
  _found = false;
  return {};
}

void EsTrack::Warn(const std::string& what) {
  if (std::exchange(_warned, true)) return;
  Explain("es: ", Shown(_path), ": ", what, ": read it with pv:av,url=", _path,
          ",transcode=true instead");
}

Status EsTrack::Refuse(const std::string& why) const {
  nimbo::Refuse("es: ", Shown(_path), ": ", why);
  return Status::Failed();
}

void EsVideoTrack::Reset() {
  _reader.Reset();
  if (Media()) return;
  _sps.clear();
  _pps.clear();
}

Result<Reading> EsVideoTrack::Find(Frame& frame) {
  AccessUnit unit;
  for (;;) {
    auto next = _reader.Next(unit);
    if (!next || *next == Reading::Aborted) return next;
    if (*next == Reading::End) {
      if (Media()) return next;
      return Status::Failed("no H.264 picture with an SPS and a PPS in all of its " +
                            std::to_string(Window().Offset() + Window().Size()) +
                            " bytes: an H.264 stream in Annex B form is needed");
    }
    Check(unit);
    if (Status taken = TakeParameters(unit); !taken) return taken;
    if (Media()) {
      frame = {unit.bytes, unit.key};
      return Reading::Ready;
    }
    // Pictures in front of the first parameter sets cannot be decoded.
    if (unit.offset > SearchLimit) {
      return Status::Failed(std::string("no ") + (_sps.empty() ? "SPS" : "PPS") +
                            " found up to byte " + std::to_string(unit.offset));
    }
  }
}

void EsVideoTrack::Check(const AccessUnit& unit) {
  if (unit.partitioned) Warn("its slices are partitioned, and players will show nothing of it");
  if (unit.bidirectional) Warn("it has B pictures, which players will show in the wrong order");
  if (unit.slices > 1) Warn("its pictures have several slices, and players will show them damaged");
  if (unit.severalSets) {
    Warn(
        "it has several parameter sets, of which players are only told the last, and will show it "
        "damaged");
  }
}

Status EsVideoTrack::TakeParameters(const AccessUnit& unit) {
  const bool new_sps = Renew(_sps, unit.sps);
  const bool new_pps = Renew(_pps, unit.pps);
  if (_sps.empty() || _pps.empty() || (Media() && !new_sps && !new_pps)) return {};
  const auto info = ParseSps(_sps);
  if (!info) {
    const auto behind = unit.sps.empty() ? 0 : unit.sps.data() - unit.bytes.data();
    const std::uint64_t at = unit.offset + static_cast<std::uint64_t>(behind);
    return Status::Failed("the SPS at byte " + std::to_string(at) + " is damaged");
  }
  if (Media()) Warn("its parameter sets change, of which players may not be told");
  // Times count frames, so the rate stays what it was for the first one.
  if (!Media()) SetRate(_asked.frames ? _asked : info->rate.frames ? info->rate : UsualRate);
  SetMedia(stream::NewH264Media(info->width, info->height, _sps, _pps));
  return {};
}

Result<Reading> EsAudioTrack::Find(Frame& frame) {
  Window().Use(_used);
  _used = 0;
  if (auto begun = Need(AdtsHeaderSize); !begun || *begun != Reading::Ready) return begun;
  const auto place = [this] { return std::to_string(Window().Offset()); };
  const auto header = ParseAdts(Window().Bytes());
  if (!header) {
    return Status::Failed("no ADTS header at byte " + place() + ": AAC in ADTS frames is needed");
  }
  if (header->rawBlocks != 1) {
    return Status::Failed("the ADTS frame at byte " + place() + " holds " +
                          std::to_string(header->rawBlocks) +
                          " raw data blocks: encode it with one a frame");
  }
  const auto size = static_cast<std::size_t>(header->frame);
  if (auto whole = Need(size); !whole || *whole != Reading::Ready) return whole;
  TakeParameters(*header);
  _used = size;
  frame = {Window().Bytes().first(size), true};
  return Reading::Ready;
}

/// Reads until `size` bytes of a frame are there. Reading::End only where no frame has begun.
Result<Reading> EsAudioTrack::Need(std::size_t size) {
  while (Window().Size() < size) {
    auto more = Window().More();
    if (!more || *more == Reading::Aborted) return more;
    if (*more == Reading::Ready) continue;
    if (Window().Size() == 0) return more;
    return Status::Failed("the ADTS frame at byte " + std::to_string(Window().Offset()) +
                          " is cut off after " + std::to_string(Window().Size()) + " bytes");
  }
  return Reading::Ready;
}

void EsAudioTrack::Reset() { _used = 0; }

void EsAudioTrack::TakeParameters(const AdtsHeader& header) {
  if (Media() && header.length == _header.length && header.profile == _header.profile &&
      header.rate == _header.rate && header.channels == _header.channels) {
    return;
  }
  if (header.profile != AacLowComplexity || header.channels < 1 || header.channels > MaxChannels) {
    Warn("it is no AAC LC in mono or stereo (profile " + std::to_string(header.profile) + ", " +
         std::to_string(header.channels) + " channels), which players may not play");
  }
  // Lower rates are published under the index 0, which stands for another one.
  if (AacRateIndex(header.rate) < 0) {
    Warn("its rate of " + std::to_string(header.rate) +
         " Hz cannot be told, and players will take " + "it for " + std::to_string(AacRates[0]) +
         " Hz");
  }
  if (!Media()) SetRate({static_cast<std::uint32_t>(header.rate), AacFrameSamples});
  SetMedia(stream::NewAacMedia(header.length, header.profile, header.channels, header.rate));
  _header = header;
}

}  // namespace nimbo::capture
