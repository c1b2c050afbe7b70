#include "plugin/live/EleRtmpLive.h"

#include <cstdlib>
#include <new>

#include "base/reflect/TClass.h"
#include "log/Line.h"
#include "plugin/element/Getter.h"
#include "sync/Atomic.h"

namespace nimbo::plugin::live {

using base::IClass;
using base::TClass;
using base::TProperty;
using log::Colour;
using log::Failure;
using log::Line;
using log::Site;
using stream::IMedia;
using stream::Packet;

namespace {

constexpr int ReconnectAttempts = 3;
constexpr long LeastChunk = 128;  // RTMP 1.0, 5.4.1
constexpr long MostChunk = 65536;

}  // namespace

EleRtmpLive::EleRtmpLive() {
  _flags |= 0x100;  // these are the numbers that the maker gives to sinks of this kind
  _flags |= 0x4;
  _flags |= 0x8;
  _flags |= 0x40000;
}

EleRtmpLive::~EleRtmpLive() = default;

// ---- properties ---------------------------------------------------------------------------------

bool EleRtmpLive::SetUrl(std::string url) {
  const bool empty = url.empty();
  _url.Set(std::move(url));
  return StatusIsNull() && !empty;
}

bool EleRtmpLive::SetChunk(const char* text) {
  char* end = nullptr;
  const long size = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || size < LeastChunk || size > MostChunk) {
    return Failure(Site::Here(), "size < 128 || size > 65536", "chunk=", text);
  }
  sync::Store(_chunk, static_cast<int>(size));
  return true;
}

int EleRtmpLive::GetChunk() const { return sync::Load(_chunk); }

LiveSettings EleRtmpLive::Settings() const {
  return {sync::Load(_chunk), sync::Load(_metadata), sync::Load(_enhanced)};
}

// ---- life cycle ---------------------------------------------------------------------------------

bool EleRtmpLive::Open() {
  const std::string url = _url.Get();
  if (url.empty()) return Failure(Site::Here(), "url.empty()", "the element has no url");
  const sync::Lock lock(_mutex);
  _sender.Forget();
  _sender.Resume();
  if (!_sender.Connect(url, Settings())) {
    Report("rtmp_disconnected");
    return false;
  }
  Report("rtmp_connected");
  return IStatus::Open();
}

bool EleRtmpLive::Close() {
  const sync::Lock lock(_mutex);
  _sender.Disconnect();
  return IStatus::Close();
}

bool EleRtmpLive::Start() {
  _sender.Resume();
  return IStatus::Start();
}

bool EleRtmpLive::Stop() {
  // A packet that is being handled must not hold up whoever stops the element.
  _sender.Cancel();
  return IStatus::Stop();
}

// ---- packets ------------------------------------------------------------------------------------

bool EleRtmpLive::ReceivePacket(Packet& packet, void* /*from*/) try {
  IMedia* media = packet.Media();
  const sync::Lock lock(_mutex);
  if (!_sender.IsConnected()) return Recover(packet);
  if (!media) return Failure(Site::Here(), "!media");
  // What follows a key frame, or sound, can be decoded without what came before.
  if (packet.IsKey() && _sender.Redirected()) {
    const std::string url = _sender.TakeRedirection(_url.Get());
    if (!url.empty() && !Redirect(url)) return Recover(packet);
  }
  return _sender.Send(packet, *media) != LiveSender::Outcome::Failed || Recover(packet);
} catch (const std::bad_alloc&) {
  return false;  // this packet is lost; there may be memory again for a later one
}

bool EleRtmpLive::Redirect(const std::string& url) {
  _sender.Disconnect();
  if (!_sender.Connect(url, Settings())) return false;
  Report("rtmp_reconnect_success");
  return true;
}

bool EleRtmpLive::Recover(const Packet& packet) {
  if (!StatusIsPlay()) return true;
  Report("rtmp_send_data_fail");
  Line(Colour::Red, Site::Here()) << "packet " << packet.Sequence() << " is not sent";
  if (_sender.IsConnected()) return true;
  for (int attempt = 0; attempt < ReconnectAttempts; ++attempt) {
    if (!_sender.Connect(_url.Get(), Settings())) continue;
    Report("rtmp_reconnect_success");
    Line(Colour::Green, Site::Here()) << "connected again";
    return true;
  }
  Report("rtmp_reconnect_fail");
  return Failure(Site::Here(), "attempt == ReconnectAttempts", "the server stays away");
}

// ---- registration -------------------------------------------------------------------------------

IClass* RegisterEleRtmpLiveClass() {
  using T = EleRtmpLive;
  const auto flag = [](const char* name, bool T::*member) {
    auto* made = new TProperty;
    made->init(name, typeid(bool), base::PropertyTypeSize<bool>, nullptr);
    made->init<T>(member);
    return made;
  };
  auto* url = new TProperty;
  url->init("url", &T::SetUrl, nullptr);
  url->initGet(&T::GetUrl);
  url->initGetStr(&T::GetUrl);
  auto* chunk = new TProperty;
  chunk->init("chunk", &T::SetChunk, nullptr);
  chunk->initGet(&T::GetChunk);
  chunk->initGetStr(&T::GetChunk);
  return TClass<>::Register<T>(
      "EleRtmpLive-ele-rtmp-live-sink",
      {url, chunk, flag("metadata", &T::_metadata), flag("enhanced", &T::_enhanced),
       Getter("rtmp_sts", &T::RtmpConnectStatus), Getter("rtmp_quality", &T::RtmpConnectQuality),
       Getter("lag", &T::GetLag), Getter("acknowledged", &T::GetAcknowledged),
       Getter("dropped", &T::GetDropped)});
}

}  // namespace nimbo::plugin::live
