#include "host/elements/av/AvSource.h"

#include "host/base/Console.h"
#include "host/capture/av/InputOptions.h"
#include "host/capture/av/LibavSource.h"
#include "host/elements/Properties.h"
#include "host/stream/State.h"
#include "host/stream/Tree.h"

namespace nimbo::stream {

namespace {

constexpr char ClassName[] = "AvSource-av-source";

constexpr char Url[] = "url";
constexpr char Format[] = "format";
constexpr char Pace[] = "pace";
constexpr char Loop[] = "loop";
constexpr char Streams[] = "streams";
constexpr char Transcode[] = "transcode";
constexpr char LibavOptions[] = "options";

/// Outputs for both codecs; streams= takes one of them away.
constexpr struct {
  const char* codec;
  const char* onlyOther;
} Outputs[] = {{"h264", "audio"}, {"aac", "video"}};

}  // namespace

AvSource::AvSource() : SourceElement("av-source") {
  for (const auto& output : Outputs) HostState(*this).Add(this, output.codec, true);
}

AvSource::~AvSource() { StatusTakeDown(); }

bool AvSource::Open() {
  base::AttrSet options;
  _source = MakeOptions(options) ? capture::av::LibavSource::Make(Name(), options) : nullptr;
  const bool opened = _source && _source->Open();
  if (opened) {
    for (IMedia* media : _source->Streams()) {
      if (Port* output = OutputOf(*media)) output->SetMedia(media);
    }
  }
  for (const auto& output : HostState(*this).outputs) TellMedia(*output);
  return opened && SourceElement::Open();
}

bool AvSource::Close() {
  if (_source) _source->Close();
  for (const auto& output : HostState(*this).outputs) output->SetMedia(nullptr);
  return SourceElement::Close();
}

bool AvSource::SetStreams(const char* text) {
  auto& outputs = HostState(*this).outputs;
  for (const auto& output : outputs) {
    if (output->Linked()) {
      return Refuse("\"", Name(), "\" is linked: \"streams\" cannot change");
    }
  }
  if (!Keep(Streams, text)) return false;
  {
    const sync::Lock lock(TreeMutex());
    outputs.Change().clear();
  }
  for (const auto& output : Outputs) {
    if (base::Hash(text) != base::Hash(output.onlyOther))
      HostState(*this).Add(this, output.codec, true);
  }
  return true;
}

bool AvSource::Keep(const char* key, const char* text) {
  if (!StatusIsNull()) return Refuse("\"", Name(), "\" is open: ", key, " cannot change");
  const sync::Lock lock(TreeMutex());
  _settings.Set(key, text);
  capture::av::InputOptions input;
  if (const char* url = _settings.Get(Url)) input.url = url;
  if (const char* format = _settings.Get(Format)) input.format = format;
  HostState(*this).live = input.Live();
  return true;
}

std::string AvSource::Kept(const char* key) const {
  const sync::Lock lock(TreeMutex());
  const char* text = _settings.Get(key);
  return text ? text : "";
}

bool AvSource::MakeOptions(base::AttrSet& options) const {
  {
    const sync::Lock lock(TreeMutex());
    options = _settings;
  }
  const base::AttrSet forLibav(options.Get(LibavOptions));
  options.Set(LibavOptions, nullptr);
  for (const auto& [key, value] : Framework::Entries(forLibav))
    options.Set(key.c_str(), value.c_str());
  return Framework::Valid(forLibav);
}

Port* AvSource::OutputOf(const IMedia& media) const {
  for (const auto& output : HostState(*this).outputs) {
    if (base::Hash(output->Caps()) == base::Hash(media.Codec())) return output.get();
  }
  return nullptr;
}

void AvSource::Register() {
  base::IClass* cl = base::TClass<>::Register<AvSource>(
      ClassName,
      {Setting(Url, &AvSource::SetText<Url>, &AvSource::GetText<Url>,
               "file, device or URL to read; - is the standard input"),
       Setting(Format, &AvSource::SetText<Format>, &AvSource::GetText<Format>,
               "libavformat's name of the format or device"),
       Setting(Pace, &AvSource::SetText<Pace>, &AvSource::GetText<Pace>, "realtime or fast"),
       Setting(Loop, &AvSource::SetText<Loop>, &AvSource::GetText<Loop>,
               "how often it is played: a number, or true for without end"),
       Setting(Streams, &AvSource::SetStreams, &AvSource::GetText<Streams>, "video, audio or both"),
       Setting(Transcode, &AvSource::SetText<Transcode>, &AvSource::GetText<Transcode>,
               "true: never pass packets through"),
       Setting(LibavOptions, &AvSource::SetText<LibavOptions>, &AvSource::GetText<LibavOptions>,
               "options for libavformat, as key=value,..."),
       Setting("bit-rate", &AvSource::SetBitRate, &AvSource::GetBitRate, BitRateText),
       Figure("packets", &AvSource::GetPackets, "packets delivered"),
       Figure("bytes", &AvSource::GetBytes, "bytes delivered")});
  base::Describe(cl, "nimbo-av", "reads files, devices and network streams with libavformat");
}

}  // namespace nimbo::stream
