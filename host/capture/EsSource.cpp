#include "host/capture/EsSource.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "base/reflect/Names.h"
#include "host/base/Console.h"
#include "host/base/Framework.h"
#include "host/base/Nearest.h"

namespace nimbo::capture {

namespace {

constexpr std::uint32_t MaxFramesPerSecond = 1000;

/// The last one is the consumer's.
const std::vector<std::string> Options = {"video", "audio", "fr",       "loop",
                                          "pace",  "wait",  "plenckeys"};

/// Reads "30", "29.97" or "30000/1001".
bool ParseRate(const std::string& text, FrameRate& rate) {
  constexpr double Precision = 1000;
  char* end = nullptr;
  errno = 0;
  const double frames = std::strtod(text.c_str(), &end);
  double seconds = 1;
  if (end != text.c_str() && *end == '/') {
    const char* divisor = end + 1;
    seconds = std::strtod(divisor, &end);
    if (end == divisor) return false;
  }
  if (end == text.c_str() || *end != '\0' || !(seconds >= 1 && seconds <= Precision * Precision) ||
      !(frames > 0 && frames / seconds <= MaxFramesPerSecond)) {
    return false;
  }
  rate = Reduced(static_cast<std::uint32_t>(std::lround(frames * Precision)),
                 static_cast<std::uint32_t>(std::lround(seconds * Precision)));
  return rate.frames != 0;
}

/// Reads a number of rounds, or a truth value: `true` is without end (0).
bool ParseLoop(const char* text, std::uint64_t& plays) {
  char* end = nullptr;
  const long number = std::strtol(text, &end, 10);
  if (end != text && *end == '\0') {
    plays = static_cast<std::uint64_t>(number);
    return number > 0;
  }
  bool endless = false;
  if (!base::ConvertToImpl(text, endless)) return false;
  plays = endless ? 0 : 1;
  return true;
}

}  // namespace

std::unique_ptr<CaptureSource> EsSource::Make(const std::string&, const base::AttrSet& options) {
  const auto refuse = [](const char* key, const char* value, const char* wanted) {
    Refuse("es: ", key, "=", value, ": ", wanted);
    return std::unique_ptr<CaptureSource>();
  };
  for (const auto& [key, value] : Framework::Entries(options)) {
    const auto same = [id = base::Hash(key.c_str())](const std::string& known) {
      return base::Hash(known.c_str()) == id;
    };
    if (std::any_of(Options.begin(), Options.end(), same)) continue;
    Explain("es: option ", key, " has no effect here", base::Suggest(key, Options));
  }
  std::unique_ptr<EsSource> source(new EsSource);
  const char* video = options.Get("video");
  const char* audio = options.Get("audio");
  if ((!video || !*video) && (!audio || !*audio)) {
    Refuse("es: no file: say pv:es,video=PATH or audio=PATH, or both");
    return nullptr;
  }
  FrameRate rate;
  const char* frames = options.Get("fr");
  if (frames && !ParseRate(frames, rate)) {
    return refuse("fr", frames, "frames per second are needed, such as 30, 29.97 or 30000/1001");
  }
  const char* loop = options.Get("loop");
  if (loop && !ParseLoop(loop, source->_plays)) {
    return refuse("loop", loop, "the number of rounds is needed, or true for without end");
  }
  if (const char* pace = options.Get("pace")) {
    source->_fast = base::Hash(pace) == base::Hash("fast");
    if (!source->_fast && base::Hash(pace) != base::Hash("realtime")) {
      return refuse("pace", pace, "it is realtime or fast");
    }
  }
  const char* wait = options.Get("wait");
  const auto patience = wait ? ParsePatience(wait) : FirstFramePatience;
  if (!patience) {
    return refuse("wait", wait, "the seconds that the first frame may take are needed, such as 30");
  }
  if (video && *video) {
    source->_tracks.push_back(std::make_unique<EsVideoTrack>(video, source->_abort, rate));
    source->_codecs.emplace_back("h264");
  }
  if (audio && *audio) {
    source->_tracks.push_back(std::make_unique<EsAudioTrack>(audio, source->_abort));
    source->_codecs.emplace_back("aac");
  }
  for (const auto& track : source->_tracks) track->SetPatience(*patience);
  return source;
}

EsSource::~EsSource() { Close(); }

std::vector<std::string> EsSource::Outputs() const { return _codecs; }

bool EsSource::Open() {
  Close();
  _abort.Clear();
  // A program that writes into two named pipes may wait until both are being read.
  for (const auto& track : _tracks) {
    if (!track->Open()) return false;
  }
  for (const auto& track : _tracks) {
    if (!track->Begin()) return false;
    _media.push_back(Share(*track->Media()));
    _streams.push_back(track->Media());
  }
  _played = 1;
  _round_start = _position = _origin = 0;
  _pace.Restart();
  _failed = false;
  return true;
}

bool EsSource::Start() {
  _abort.Clear();
  if (!_fast) _origin = MonotonicNow() - _position;
  return true;
}

void EsSource::Close() {
  _streams.clear();
  _media.clear();
  for (const auto& track : _tracks) track->Close();
}

Held<stream::Packet> EsSource::Read() {
  EsTrack* track = Next();
  if (!track) return nullptr;
  _position = _round_start + track->Time();
  const bool leads = track == _tracks.front().get();
  const bool due =
      _fast ? !_abort.IsSet() : _abort.WaitUntil(_origin + _pace.Due(_position, leads));
  return due ? track->Take(_origin + _round_start) : nullptr;
}

/// The track whose frame comes next. Null at the end, after an abort and after a failure.
EsTrack* EsSource::Next() {
  for (;;) {
    EsTrack* next = nullptr;
    for (const auto& track : _tracks) {
      auto found = track->Peek();
      _failed = !found;
      if (_failed || *found == Reading::Aborted) return nullptr;
      if (*found == Reading::End) continue;
      if (!next || track->Time() < next->Time()) next = track.get();
    }
    if (next || !Again()) return next;
  }
}

/// Starts the next round, behind the longest stream of this one. False when there is none.
bool EsSource::Again() {
  if (_plays != 0 && _played >= _plays) return false;
  std::int64_t length = 0;
  for (const auto& track : _tracks) length = std::max(length, track->Time());
  for (const auto& track : _tracks) {
    _failed = !track->Rewind();
    if (_failed) return false;
  }
  _round_start += length;
  ++_played;
  return true;
}

}  // namespace nimbo::capture
