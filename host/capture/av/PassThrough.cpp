#include "host/capture/av/PassThrough.h"

#include <algorithm>

#include "host/capture/Adts.h"
#include "host/capture/Sps.h"
#include "host/capture/av/AacEncoder.h"
#include "host/stream/Media.h"

namespace nimbo::capture::av {

H264Pass::H264Pass(int width, int height, const ParameterSets& sets)
    : _width(width), _height(height) {
  UseSets(sets.Sps().front(), sets.Pps().front());
}

void H264Pass::UseSets(const Bytes& sps, const Bytes& pps) {
  if (const auto info = ParseSps(sps)) {
    _width = info->width;
    _height = info->height;
  }
  _sps = sps;
  _pps = pps;
  _header.clear();
  AppendUnit(_header, _sps);
  AppendUnit(_header, _pps);
  _output.SetMedia(stream::NewH264Media(_width, _height, _sps, _pps));
}

Status H264Pass::Push(AVPacket& packet) {
  const ByteSpan bytes = BytesOf(packet);
  const std::vector<NalUnit> units = SplitAnnexB(bytes);
  const char* why = nullptr;
  ParameterSets sets;
  for (const NalUnit& unit : units) sets.Add(unit);
  if (sets.Sps().size() > 1 || sets.Pps().size() > 1) why = "it has several parameter sets";
  if (why || !DescribablePicture(units, why)) {
    return Status::Failed(std::string("the video cannot be passed on any longer: ") + why +
                          "; with transcode=true it can be used");
  }
  const Bytes& sps = sets.Sps().empty() ? _sps : sets.Sps().front();
  const Bytes& pps = sets.Pps().empty() ? _pps : sets.Pps().front();
  if (sps != _sps || pps != _pps) UseSets(Bytes(sps), Bytes(pps));
  const auto slice =
      std::find_if(units.begin(), units.end(), [](const NalUnit& unit) { return unit.IsSlice(); });
  if (slice == units.end()) return {};
  // What stands behind the slice (filler, an end of sequence) is no part of the picture, and the
  // wire format has no place for it.
  const bool last = slice + 1 == units.end();
  const auto end = slice->bytes.data() + slice->bytes.size() - bytes.data();
  const ByteSpan used = last ? bytes : bytes.first(static_cast<std::size_t>(end));
  const bool key = (packet.flags & AV_PKT_FLAG_KEY) != 0;
  const bool bare = key && sets.Sps().empty();
  _output.Append(bare ? ByteSpan(_header) : ByteSpan(), used, key, packet.dts);
  return {};
}

AacPass::AacPass(int rate, int channels, bool framed)
    : _rate(rate), _channels(channels), _framed(framed) {
  _output.SetMedia(stream::NewAacMedia(AdtsHeaderSize, AacLowComplexity, channels, rate));
}

Status AacPass::Push(AVPacket& packet) {
  ByteSpan frame = BytesOf(packet);
  if (_framed) {
    const auto header = ParseAdts(frame);
    if (!header) return {};  // damaged
    const auto length = static_cast<std::size_t>(header->length);
    if (header->rate != _rate || header->channels != _channels || header->rawBlocks != 1) {
      return Status::Failed(
          "the audio cannot be passed on any longer: its format changed; with transcode=true it "
          "can be used");
    }
    if (length >= frame.size()) return {};
    frame = frame.subspan(length);
  }
  if (!AppendAac(_output, frame, _rate, _channels, packet.dts)) {
    return Status::Failed("the audio cannot be passed on: a frame is too long for its header");
  }
  return {};
}

}  // namespace nimbo::capture::av
