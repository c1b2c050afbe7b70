#include "host/capture/av/SilentPath.h"

#include "host/capture/Monotonic.h"
#include "host/capture/av/AacEncoder.h"

extern "C" {
#include <libavutil/mathematics.h>
#include <libavutil/samplefmt.h>
}

namespace nimbo::capture::av {

namespace {

constexpr std::int64_t EncodedBitRate = 64'000;
/// The first frames hold what an encoder needs to get going.
constexpr int FirstFrames = 4;
constexpr std::int64_t LongestGap = 10 * NsPerSecond;

}  // namespace

Status SilentPath::Open(int rate, int channels) {
  _rate = rate;
  _frames = 0;
  _frame.clear();
  _output.Clear();
  AacEncoder encoder;
  if (Status opened = encoder.Open(rate, channels, EncodedBitRate); !opened) return opened;
  const FramePtr frame(encoder.NewFrame());
  if (!frame) return Status::Failed("no memory for sound");
  av_samples_set_silence(frame->extended_data, 0, frame->nb_samples, channels, AV_SAMPLE_FMT_FLTP);
  StreamOutput encoded;
  encoded.SetMedia(encoder.NewMedia());
  for (int i = 0; i < FirstFrames; ++i) {
    const std::int64_t time = std::int64_t{i} * AacFrameSamples * NsPerSecond / rate;
    if (Status made = encoder.Encode(frame.get(), time, encoded); !made) return made;
  }
  while (!encoded.Empty()) {
    const auto packet = encoded.Take(0);
    _frame.assign(packet->Data(), packet->Data() + packet->Size());
  }
  if (_frame.empty()) return Status::Failed("the encoder gave nothing");
  _output.SetMedia(encoder.NewMedia());
  return {};
}

void SilentPath::Fill(std::int64_t first, std::int64_t last) {
  const auto next = [this] {
    return _begin + av_rescale(_frames, AacFrameSamples * NsPerSecond, _rate);
  };
  if (_frames == 0 || first - next() > LongestGap) {
    _begin = first;
    _frames = 0;
  }
  for (; next() <= last; ++_frames) _output.Append({}, _frame, true, next());
}

}  // namespace nimbo::capture::av
