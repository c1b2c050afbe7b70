#include "host/capture/EsTrack.h"

#include <algorithm>
#include <utility>

#include "host/stream/Console.h"
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

bool EsTrack::Open() {
  std::string error;
  if (!_window.Open(_path, error)) {
    Fail(error);
    return false;
  }
  return true;
}

bool EsTrack::Begin() {
  Reset();
  const std::int64_t due = MonotonicNow() + _patience;
  _window.SetDeadline(due);
  const Result result = Peek();
  _window.SetDeadline(Never);
  if (result == Result::End) {
    Fail("the file is empty");
  } else if (result == Result::Aborted && MonotonicNow() >= due) {
    Fail("no frame came within " + InSeconds(_patience) +
         ": start what writes it, or give it longer with wait=SECONDS");
  }
  if (result != Result::Frame) return false;
  if (!_window.Seekable()) return true;
  Survey();
  return Peek() == Result::Frame;
}

/// Passes over the first frames of a file for what is to be said about them, and goes back.
void EsTrack::Survey() {
  Frame frame;
  std::string told_later;
  while (_window.Offset() < SurveyedBytes && Find(frame, told_later) == Result::Frame) {
  }
  SetMedia(nullptr);  // it may have changed
  Rewind();
}

void EsTrack::Close() {
  _warned = false;
  _window.Close();
  SetMedia(nullptr);
  _found = false;
  _frames = 0;
  _sequence = 1;
}

EsTrack::Result EsTrack::Peek() {
  if (_found) return Result::Frame;
  std::string error;
  const Result result = Find(_frame, error);
  _found = result == Result::Frame;
  return result == Result::Failed ? Fail(error) : result;
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

bool EsTrack::Rewind() {
  if (!_window.Rewind()) {
    Fail("only a file can be played again");
    return false;
  }
  Reset();
  _frames = 0;
  _found = false;
  return true;
}

void EsTrack::Warn(const std::string& what) {
  if (std::exchange(_warned, true)) return;
  stream::Explain("es: ", Shown(_path), ": ", what, ": read it with pv:av,url=", _path,
                  ",transcode=true instead");
}

EsTrack::Result EsTrack::Fail(const std::string& error) const {
  stream::Refuse("es: ", Shown(_path), ": ", error);
  return Result::Failed;
}

void EsVideoTrack::Reset() {
  _reader.Reset();
  if (Media()) return;
  _sps.clear();
  _pps.clear();
}

EsTrack::Result EsVideoTrack::Find(Frame& frame, std::string& error) {
  AccessUnit unit;
  for (;;) {
    switch (_reader.Next(unit, error)) {
      case AccessUnitReader::Result::Unit:
        break;
      case AccessUnitReader::Result::End:
        if (Media()) return Result::End;
        error = "no H.264 picture with an SPS and a PPS in all of its " +
                std::to_string(Window().Offset() + Window().Size()) +
                " bytes: an H.264 stream in Annex B form is needed";
        return Result::Failed;
      case AccessUnitReader::Result::Aborted:
        return Result::Aborted;
      case AccessUnitReader::Result::Failed:
        return Result::Failed;
    }
    Check(unit);
    if (!TakeParameters(unit, error)) return Result::Failed;
    if (Media()) {
      frame = {unit.bytes, unit.key};
      return Result::Frame;
    }
    // Pictures in front of the first parameter sets cannot be decoded.
    if (unit.offset > SearchLimit) {
      error = std::string("no ") + (_sps.empty() ? "SPS" : "PPS") + " found up to byte " +
              std::to_string(unit.offset);
      return Result::Failed;
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

bool EsVideoTrack::TakeParameters(const AccessUnit& unit, std::string& error) {
  const bool new_sps = Renew(_sps, unit.sps);
  const bool new_pps = Renew(_pps, unit.pps);
  if (_sps.empty() || _pps.empty() || (Media() && !new_sps && !new_pps)) return true;
  const auto info = ParseSps(_sps);
  if (!info) {
    const auto behind = unit.sps.empty() ? 0 : unit.sps.data() - unit.bytes.data();
    const std::uint64_t at = unit.offset + static_cast<std::uint64_t>(behind);
    error = "the SPS at byte " + std::to_string(at) + " is damaged";
    return false;
  }
  if (Media()) Warn("its parameter sets change, of which players may not be told");
  // Times count frames, so the rate stays what it was for the first one.
  if (!Media()) SetRate(_asked.frames ? _asked : info->rate.frames ? info->rate : UsualRate);
  SetMedia(stream::NewH264Media(info->width, info->height, _sps, _pps));
  return true;
}

EsTrack::Result EsAudioTrack::Find(Frame& frame, std::string& error) {
  Window().Use(_used);
  _used = 0;
  Result result = Need(AdtsHeaderSize, error);
  if (result != Result::Frame) return result;
  const auto header = ParseAdts(Window().Bytes());
  if (!header) {
    error = "no ADTS header at byte " + std::to_string(Window().Offset()) +
            ": AAC in ADTS frames is needed";
    return Result::Failed;
  }
  if (header->rawBlocks != 1) {
    error = "the ADTS frame at byte " + std::to_string(Window().Offset()) + " holds " +
            std::to_string(header->rawBlocks) + " raw data blocks: encode it with one a frame";
    return Result::Failed;
  }
  const auto size = static_cast<std::size_t>(header->frame);
  result = Need(size, error);
  if (result != Result::Frame) return result;
  TakeParameters(*header);
  _used = size;
  frame = {Window().Bytes().first(size), true};
  return Result::Frame;
}

/// Reads until `size` bytes of a frame are there. Result::End only where no frame has begun.
EsTrack::Result EsAudioTrack::Need(std::size_t size, std::string& error) {
  while (Window().Size() < size) {
    switch (Window().More()) {
      case ByteWindow::Result::More:
        break;
      case ByteWindow::Result::End:
        if (Window().Size() == 0) return Result::End;
        error = "the ADTS frame at byte " + std::to_string(Window().Offset()) +
                " is cut off after " + std::to_string(Window().Size()) + " bytes";
        return Result::Failed;
      case ByteWindow::Result::Aborted:
        return Result::Aborted;
      case ByteWindow::Result::TooLarge:
      case ByteWindow::Result::Failed:
        error =
            Window().Error() + " at byte " + std::to_string(Window().Offset() + Window().Size());
        return Result::Failed;
    }
  }
  return Result::Frame;
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
