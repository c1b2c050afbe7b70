#include "host/elements/av/Recorder.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/base/Console.h"
#include "host/elements/Properties.h"
#include "host/elements/av/RecordingPath.h"
#include "host/stream/State.h"
#include "nimbo/base/names.h"

namespace nimbo::stream {

namespace {

constexpr char ClassName[] = "Recorder-recorder-sink";
/// A stream that has not come by then is not waited for.
constexpr std::int64_t StreamPatience = std::chrono::nanoseconds(std::chrono::seconds(2)).count();
/// Between a file that could not be written and the next one.
constexpr std::chrono::seconds RetryPause{60};

}  // namespace

Recorder::~Recorder() { StatusTakeDown(); }

bool Recorder::Open() {
  const std::string file = GetFile();
  const std::size_t name = file.find_last_of('/') + 1;  // 0 where there is no folder
  if (name == file.size()) return Refuse("\"", Name(), "\": its file has no name");
  const std::string folder = name == 0 ? "." : file.substr(0, name);
  if (access(folder.c_str(), W_OK | X_OK) != 0) {
    return Refuse("\"", Name(), "\": nothing can be recorded to \"", file,
                  "\": ", std::strerror(errno));
  }
  _packets = 0;
  _bytes = 0;
  _retry = {};
  return IElement::Open();
}

bool Recorder::Close() {
  End();
  _video = nullptr;
  _audio = nullptr;
  return IElement::Close();
}

bool Recorder::ReceivePacket(Packet& packet, void*) {
  if (!packet.Media() || Clock::now() < _retry) return true;
  if (Describe(packet)) End();
  const bool beginning = IsPicture(*packet.Media()) ? packet.IsKey() : !_video;
  const auto segment = _segment.load().count();
  if (_movie.IsOpen() && beginning && segment > 0 && packet.TimeStamp() - _began >= segment) End();
  if (_movie.IsOpen()) {
    Write(packet);
  } else if (beginning || !_waiting.empty()) {
    _waiting.push_back(Share(packet));
    if (Complete()) Begin();
  }
  return true;
}

bool Recorder::Describe(const Packet& packet) {
  IMedia& media = *packet.Media();
  if (!IsPicture(media) && !IsSound(media)) return false;
  Held<IMedia>& known = IsPicture(media) ? _video : _audio;
  // A stream that comes late has no track in the file under way either.
  const bool other = known ? !SameStream(*known, media) : _movie.IsOpen();
  if (!known || other) known = Share(media);
  return other;
}

bool Recorder::Complete() const {
  const auto waits = [this](const char* codec, const IMedia* known) {
    const auto& inputs = HostState(*this).inputs;
    return !known && std::any_of(inputs.begin(), inputs.end(), [codec](const auto& input) {
      return base::Hash(input->Caps()) == base::Hash(codec);
    });
  };
  const bool missing = waits("h264", _video.get()) || waits("aac", _audio.get());
  return !missing || _waiting.back()->TimeStamp() - _waiting.front()->TimeStamp() > StreamPatience;
}

void Recorder::Begin() {
  _path = FreePath(GetFile());
  _began = _waiting.front()->TimeStamp();
  const nimbo::Status opened = _movie.Open(_path, _video.get(), _audio.get(), _began);
  if (!opened) return Fail(opened);
  Tell(log::Colour::Green, "\"", Name(), "\": recording to \"", _path, "\"");
  for (const auto& packet : std::exchange(_waiting, {})) {
    if (_movie.IsOpen()) Write(*packet);
  }
}

void Recorder::Write(const Packet& packet) {
  if (const nimbo::Status written = _movie.Write(packet); !written) return Fail(written);
  ++_packets;
  _bytes += packet.Size();
}

void Recorder::End() {
  _waiting.clear();
  if (const nimbo::Status ended = _movie.Close(); !ended) Fail(ended);
}

void Recorder::Fail(const nimbo::Status& failure) {
  (void)_movie.Close();
  _waiting.clear();
  _retry = Clock::now() + RetryPause;
  Refuse("\"", Name(), "\": \"", _path, "\" cannot be written: ", failure.Why(),
         "; another file is tried in a minute");
}

bool Recorder::SetFile(const char* path) {
  if (!StatusIsNull()) return Refuse("\"", Name(), "\" is open: its file cannot change");
  const sync::Lock lock(_mutex);
  _file = path;
  return true;
}

std::string Recorder::GetFile() const {
  const sync::Lock lock(_mutex);
  return _file;
}

bool Recorder::SetSegment(const char* text) {
  if (!StatusIsNull()) return Refuse("\"", Name(), "\" is open: its segment cannot change");
  return SetSeconds(*this, "segment", text, _segment);
}

std::string Recorder::GetSegment() const { return SecondsText(_segment); }

void Recorder::Register() {
  base::IClass* cl = base::TClass<>::Register<Recorder>(
      ClassName,
      {Setting("file", &Recorder::SetFile, &Recorder::GetFile,
               "path of the recording (strftime's conversions), numbered where there is one"),
       Setting("segment", &Recorder::SetSegment, &Recorder::GetSegment,
               "seconds until a key frame begins another file; 0: never"),
       Figure("packets", &Recorder::GetPackets, "audio and video packets recorded"),
       Figure("bytes", &Recorder::GetBytes, "their bytes")});
  base::Describe(cl, "nimbo-av", "records what it gets to fragmented MP4");
}

}  // namespace nimbo::stream
