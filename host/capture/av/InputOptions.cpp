#include "host/capture/av/InputOptions.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <sstream>

#include "host/base/Console.h"
#include "host/base/Framework.h"
#include "host/base/Nearest.h"
#include "host/base/ShownAddress.h"
#include "host/capture/av/Libav.h"
#include "nimbo/base/names.h"

extern "C" {
#include <libavdevice/avdevice.h>
}

namespace nimbo::capture::av {

namespace {

constexpr char StandardInput[] = "-";
constexpr char PipeScheme[] = "pipe:";

/// Transports whose sender does not wait for a slow reader.
constexpr const char* LiveSchemes[] = {"rtsp", "rtsps", "rtp",   "srtp",  "udp",
                                       "srt",  "rtmp",  "rtmps", "rtmpt", "rtmpe"};
/// A format that libavformat counts as a device, but that makes its pictures as fast as they are
/// taken.
constexpr char FilterDevice[] = "lavfi";

/// Cameras, which libavformat does not recognise by themselves.
constexpr char CameraPath[] = "/dev/video";
constexpr char CameraFormat[] = "v4l2";

constexpr const char* Presets[] = {"ultrafast", "superfast", "veryfast", "faster",
                                   "fast",      "medium",    "slow"};

constexpr char ConsumerOption[] = "plenckeys";

std::string Scheme(const std::string& url) {
  const std::size_t end = url.find("://");
  return end == std::string::npos ? "" : url.substr(0, end);
}

bool Is(const std::string& text, const char* word) {
  return base::Hash(text.c_str()) == base::Hash(word);
}

bool SetFormat(InputOptions& options, const std::string& text) {
  options.format = text;
  return options.Format() != nullptr;
}

/// The names of all formats and devices; one may have several, joined by ",".
std::vector<std::string> FormatNames() {
  std::vector<std::string> names;
  const auto add = [&names](const AVInputFormat& format) {
    std::istringstream all(format.name);
    for (std::string name; std::getline(all, name, ',');) names.push_back(name);
  };
  void* place = nullptr;
  while (const AVInputFormat* format = av_demuxer_iterate(&place)) add(*format);
  const AVInputFormat* device = nullptr;
  while ((device = av_input_video_device_next(device)) != nullptr) add(*device);
  while ((device = av_input_audio_device_next(device)) != nullptr) add(*device);
  return names;
}

bool SetPace(InputOptions& options, const std::string& text) {
  options.realtime = Is(text, "realtime");
  return options.realtime || Is(text, "fast");
}

bool SetLoop(InputOptions& options, const std::string& text) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, options.plays);
  if (error == std::errc() && stop == end) return options.plays > 0;
  bool endless = false;
  if (!base::ConvertToImpl(text.c_str(), endless)) return false;
  options.plays = endless ? 0 : 1;
  return true;
}

bool SetStreams(InputOptions& options, const std::string& text) {
  const bool both = Is(text, "both");
  options.video = both || Is(text, "video");
  options.audio = both || Is(text, "audio");
  return options.video || options.audio;
}

bool SetTranscode(InputOptions& options, const std::string& text) {
  return base::ConvertToImpl(text.c_str(), options.transcode);
}

bool SetCarried(InputOptions& options, const std::string& text) {
  const bool any = Is(text, "any");
  const bool live = Is(text, "live");
  options.carried = any ? Carried::Any : live ? Carried::Live : Carried::Classic;
  return any || live || Is(text, "classic");
}

bool SetEnhanced(InputOptions& options, const std::string& text) {
  return base::ConvertToImpl(text.c_str(), options.enhanced);
}

bool SetSilence(InputOptions& options, const std::string& text) {
  return base::ConvertToImpl(text.c_str(), options.silence);
}

bool SetKeep(InputOptions& options, const std::string& text) {
  if (!Is(text, "auto")) return base::ConvertToImpl(text.c_str(), options.keep);
  // What can be kept, is known once the other options are.
  options.keep = true;
  options.keepIfPossible = true;
  return true;
}

bool SetSlate(InputOptions& options, const std::string& text) {
  options.slate = text;
  return true;
}

bool SetWait(InputOptions& options, const std::string& text) {
  const auto patience = ParsePatience(text);
  if (patience) options.patience = *patience;
  return patience.has_value();
}

/// A whole number from `low` to `high`, with "k" or "M" behind it a thousand or a million of them.
template <class Number>
bool ReadNumber(const std::string& text, Number low, Number high, Number& number) {
  std::int64_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || value < 0 || value > std::numeric_limits<int>::max()) return false;
  const std::string unit(stop, end);
  value *= unit == "k" ? 1000 : unit == "M" ? 1'000'000 : 1;
  if ((!unit.empty() && unit != "k" && unit != "M") || value < std::int64_t{low} ||
      value > std::int64_t{high}) {
    return false;
  }
  number = static_cast<Number>(value);
  return true;
}

bool SetVideoBitRate(InputOptions& options, const std::string& text) {
  return ReadNumber<std::int64_t>(text, 10'000, 200'000'000, options.encoding.videoBitRate);
}

bool SetAudioBitRate(InputOptions& options, const std::string& text) {
  return ReadNumber<std::int64_t>(text, 8'000, 512'000, options.encoding.audioBitRate);
}

bool SetSize(InputOptions& options, const std::string& text) {
  const auto by = text.find('x');
  auto& encoding = options.encoding;
  return by != std::string::npos && ReadNumber(text.substr(0, by), 16, 8192, encoding.width) &&
         ReadNumber(text.substr(by + 1), 16, 8192, encoding.height) &&
         (encoding.width | encoding.height) % 2 == 0;
}

bool SetPictures(InputOptions& options, const std::string& text) {
  char* end = nullptr;
  options.encoding.pictures = std::strtod(text.c_str(), &end);
  return *end == '\0' && options.encoding.pictures >= 1 && options.encoding.pictures <= 240;
}

bool SetGop(InputOptions& options, const std::string& text) {
  return ReadNumber(text, 1, 3000, options.encoding.gop);
}

bool SetPreset(InputOptions& options, const std::string& text) {
  options.encoding.preset = text;
  return std::any_of(std::begin(Presets), std::end(Presets),
                     [&](const char* known) { return text == known; });
}

constexpr struct {
  const char* key;
  bool (*set)(InputOptions& options, const std::string& text);
  const char* wanted;
} Keys[] = {
    {"format", SetFormat, "libavformat knows no format of this name"},
    {"pace", SetPace, "it is realtime or fast"},
    {"loop", SetLoop, "the number of rounds is needed, or true for without end"},
    {"streams", SetStreams, "it is video, audio or both"},
    {"transcode", SetTranscode, "it is true or false"},
    {"video_bitrate", SetVideoBitRate, "bits a second are needed, from 10k to 200M"},
    {"audio_bitrate", SetAudioBitRate, "bits a second are needed, from 8k to 512k"},
    {"size", SetSize, "WIDTHxHEIGHT is needed, both even and from 16 to 8192"},
    {"fps", SetPictures, "the pictures a second are needed, from 1 to 240"},
    {"keyint", SetGop, "the pictures from one key frame to the next are needed, from 1 to 3000"},
    {"preset", SetPreset, "it is ultrafast, superfast, veryfast, faster, fast, medium or slow"},
    {"carry", SetCarried, "it is classic, live or any"},
    {"enhanced", SetEnhanced, "it is true or false"},
    {"silence", SetSilence, "it is true or false"},
    {"keep", SetKeep, "it is true, false or auto"},
    {"slate", SetSlate, "the file of a picture is needed"},
    {"wait", SetWait, "the seconds that the input may be silent at first are needed, such as 30"},
};

/// What goes and comes back takes an input that does so, and a client that can carry it.
bool CheckKept(InputOptions& options) {
  if (!options.keep) return true;
  const bool fits = options.Live() && options.carried != Carried::Classic;
  if (!fits && !options.keepIfPossible) {
    return Refuse("av: \"", options.Shown(), "\" cannot be kept: ",
                  options.Live() ? "the classic client cannot carry it"
                                 : "it is no live input, as rtsp://... and devices are");
  }
  options.keep = fits;
  if (fits) options.carried = Carried::Live;
  return true;
}

}  // namespace

int InputOptions::Pipe() const {
  if (url == StandardInput) return 0;
  if (url.compare(0, sizeof PipeScheme - 1, PipeScheme) != 0) return -1;
  int number = 0;
  std::from_chars(url.data() + sizeof PipeScheme - 1, url.data() + url.size(), number);
  return number;
}

const AVInputFormat* InputOptions::Format() const {
  avdevice_register_all();  // devices are formats by name only; repeating it does no harm
  if (!format.empty()) return av_find_input_format(format.c_str());
  const bool camera = url.compare(0, sizeof CameraPath - 1, CameraPath) == 0;
  return camera ? av_find_input_format(CameraFormat) : nullptr;
}

bool InputOptions::Device() const {
  if (Is(format, FilterDevice) || Network()) return false;
  const AVInputFormat* known = Format();
  return known && (known->flags & AVFMT_NOFILE) != 0;
}

bool InputOptions::Live() const {
  if (Device()) return true;
  const std::string scheme = Scheme(url);
  return std::any_of(std::begin(LiveSchemes), std::end(LiveSchemes),
                     [&](const char* live) { return Is(scheme, live); });
}

bool InputOptions::Network() const {
  const std::string scheme = Scheme(url);
  return !scheme.empty() && !Is(scheme, "file");
}

std::string InputOptions::Shown() const { return base::ShownAddress(url); }

std::string InputOptions::WhyUnknown() const {
  std::vector<std::string> schemes{"file", "http", "https"};
  schemes.insert(schemes.end(), std::begin(LiveSchemes), std::end(LiveSchemes));
  return base::DidYouMean(Scheme(url), schemes);
}

std::string InputOptions::WhyUseless(const std::string& key) {
  std::vector<std::string> keys{"url"};
  for (const auto& known : Keys) keys.emplace_back(known.key);
  return base::DidYouMean(key, keys);
}

bool ReadInputOptions(const base::AttrSet& from, InputOptions& options) {
  for (const auto& entry : Framework::Entries(from)) {
    const auto& [key, text] = entry;
    if (Is(key, "url")) {
      options.url = text;
      continue;
    }
    const auto known = std::find_if(std::begin(Keys), std::end(Keys),
                                    [name = key](const auto& one) { return Is(name, one.key); });
    if (known == std::end(Keys)) {
      if (!Is(key, ConsumerOption)) options.rest.push_back(entry);
    } else if (!known->set(options, text)) {
      const bool isFormat = known->set == SetFormat;
      return Refuse("av: ", key, "=", text, ": ", known->wanted,
                    isFormat ? base::DidYouMean(text, FormatNames()) : "");
    }
  }
  if (options.url.empty()) return Refuse("av: no url: say pv:av,url=FILE, DEVICE or URL");
  if (options.plays != 1 && (options.Pipe() >= 0 || options.Live())) {
    Explain("av: \"", options.Shown(), "\" cannot be repeated; loop has no effect");
    options.plays = 1;
  }
  return CheckKept(options);
}

}  // namespace nimbo::capture::av
