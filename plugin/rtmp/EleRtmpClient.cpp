#include "plugin/rtmp/EleRtmpClient.h"

#include <new>

#include "base/reflect/TClass.h"
#include "nimbo/base/exit_call.h"
#include "plugin/element/Getter.h"
#include "plugin/rtmp/UnitMarker.h"

namespace nimbo::plugin::rtmp {

using base::ExitCall;
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

[[gnu::used]] int s_unit = MarkUnit();

constexpr Profile ClientProfile = {
    {
        /*connectServer=*/{__FILE__, __LINE__, "ConnectServer"},
        /*setRtmpPacketSize=*/{__FILE__, __LINE__, "SetRtmpPacketSize"},
        /*sendRtmpPacket=*/{__FILE__, __LINE__, "SendRtmpPacket"},
        /*sendH264=*/{__FILE__, __LINE__, "SendH264"},
        /*sendAac=*/{__FILE__, __LINE__, "SendAAC"},
        /*sendBufferCreate=*/{__FILE__, __LINE__, "SendBufferCreate"},
        /*sendBufferRealloc=*/{__FILE__, __LINE__, "SendBufferRealloc"},
        // Lines of this one have always named the function so, and tools look for it.
        /*sendBufferCheck=*/{__FILE__, __LINE__, "operator()"},
    },
    /*detailed=*/true,
    /*clearsBuffers=*/false,
    /*bracketsEachCall=*/true,
    /*refusesShortFrames=*/true,
    /*usesLargeChunks=*/true};

SequenceCounters s_counters;

constexpr int ReconnectAttempts = 3;

}  // namespace

EleRtmpClient::EleRtmpClient() : MediaSender(ClientProfile, s_counters) {
  _flags |= 0x100;  // these are the numbers that the maker gives to sinks of this kind
  _flags |= 0x4;
  _flags |= 0x8;
  _flags |= 0x40000;
}

EleRtmpClient::~EleRtmpClient() = default;

void EleRtmpClient::Report(const char* message) { SendMessageUp(message, nullptr, nullptr); }

// ---- properties ---------------------------------------------------------------------------------

bool EleRtmpClient::SetUrl(std::string url) {
  Line(Colour::Yellow, Site::Here()) << "url=" << url;
  const bool empty = url.empty();
  _url.Set(std::move(url));
  return StatusIsNull() && !empty;
}

std::string EleRtmpClient::GetUrl() const { return _url.Get(); }

bool EleRtmpClient::RtmpConnectStatus() { return _rtmp.Connected(); }

int EleRtmpClient::RtmpConnectQuality() { return _vid_lost ? 1 : 0; }

// ---- life cycle ---------------------------------------------------------------------------------

bool EleRtmpClient::Open() {
  const std::string url = _url.Get();
  if (url.empty()) return Failure(Site::Here(), "_url.empty()");
  {
    const sync::Lock lock(_mutex);
    BeginSession();
    if (!ConnectServer(url.c_str())) {
      EndSession();
      Report("rtmp_disconnected");
      return Failure(Site::Here(), "!ConnectServer(_url.c_str())",
                     "EleRtmpClient open: connect failed");
    }
  }
  ExitCall freeBuffers([this] { DestroyBuffers(); });
  DestroyBuffers();  // those of an Open that failed, where the host did not close in between
  _vid_buffer = SendBufferCreate(VideoSize);
  if (!_vid_buffer) return Failure(Site::Here(), "!_vid_buffer");
  _aud_buffer = SendBufferCreate(AudioSize);
  if (!_aud_buffer) return Failure(Site::Here(), "!_aud_buffer");
  Report("rtmp_connected");
  freeBuffers.Clear();
  return IStatus::Open();
}

bool EleRtmpClient::Close() {
  {
    const sync::Lock lock(_mutex);
    DisConnectServer();
    Line(Colour::Cyan, Site::Here()) << "disconnect to : " << _url.Get();
    EndSession();
  }
  DestroyBuffers();
  RepeatHeaders();
  return IStatus::Close();
}

bool EleRtmpClient::Start() {
  _rtmp.Resume();
  return IStatus::Start();
}

bool EleRtmpClient::Stop() {
  // A packet that is being handled must not hold up whoever stops the element.
  _rtmp.Cancel();
  return IStatus::Stop();
}

// ---- packets ------------------------------------------------------------------------------------

bool EleRtmpClient::ReceivePacket(Packet& packet, void* /*from*/) try {
  IMedia* media = packet.Media();
  const sync::Lock lock(_mutex);
  const char* codec = media ? media->Codec() : nullptr;
  if (!_rtmp.IsConnected()) return HandleFailure(packet, codec);
  if (!media) return Failure(Site::Here(), "!media");

  bool sent = false;
  const std::uint32_t kind = base::Hash(codec);
  if (kind == base::Hash("h264")) {
    if (!SwitchResolution(*media)) return false;
    sent = SendH264(&packet);
    Count(_vid_count, packet);
  } else if (kind == base::Hash("aac")) {
    sent = SendAAC(&packet);
    Count(_aud_count, packet);
  } else {
    Line(Colour::Red, Site::Here()) << "cannot support " << codec;
  }
  return sent || HandleFailure(packet, codec);
} catch (const std::bad_alloc&) {
  return false;  // this packet is lost; there may be memory again for a later one
}

bool EleRtmpClient::SwitchResolution(IMedia& media) {
  const Site site = {__FILE__, __LINE__, "ReceivePacket"};
  int width = 0;
  int height = 0;
  if (!media.GetIntT("w", width) || !media.GetIntT("h", height)) return false;
  // A change of one side alone does not count.
  if (width == _width || height == _height) return true;
  Line(Colour::Cyan, site) << width << "/" << height;
  DisConnectServer();
  if (!ConnectServer(_url.Get().c_str())) {
    Report("rtmp_disconnected");
    return Failure(site, "!ConnectServer(_url.c_str())", "resoltion sw,reconnect failed");
  }
  // The width takes the height too. Users rely on which later sizes reconnect.
  _width = height;
  _height = height;
  RepeatHeaders();
  return true;
}

bool EleRtmpClient::HandleFailure(const Packet& packet, const char* codec) {
  const auto at = [](int line) { return Site{__FILE__, line, "ReceivePacket"}; };
  if (!StatusIsPlay()) return true;
  Report("rtmp_send_data_fail");
  Line(Colour::Red, at(__LINE__)) << "push fail "
                                  << "/" << codec << "/"
                                  << static_cast<std::int32_t>(packet.Sequence());
  if (_rtmp.IsConnected()) {
    RepeatHeaders();
    return true;
  }
  for (int attempt = 0; attempt < ReconnectAttempts; ++attempt) {
    const bool connected = ConnectServer(_url.Get().c_str());
    Line(Colour::Red, at(__LINE__)) << "try to reconnect";
    if (!connected) continue;
    Report("rtmp_reconnect_success");
    Line(Colour::Red, at(__LINE__)) << "reconnect success";
    RepeatHeaders();
    return true;
  }
  Report("rtmp_reconnect_fail");
  return Failure(at(__LINE__), "!ret", "reconnect failed");
}

bool EleRtmpClient::SendRtmpPacket(RTMPPacket* packet, unsigned char type, char* data,
                                   unsigned int size, unsigned int timestamp) {
  return SendMessage(packet, type, data, size, timestamp);
}

void EleRtmpClient::Count(std::int32_t& counter, const Packet& packet) {
  counter = counter == -1 ? static_cast<std::int32_t>(packet.Sequence())
                          : static_cast<std::int32_t>(static_cast<std::uint32_t>(counter) + 1);
}

// ---- registration -------------------------------------------------------------------------------

IClass* RegisterEleRtmpClientClass() {
  using T = EleRtmpClient;
  const auto field = [](const char* name, auto member) {
    auto* made = new TProperty;
    made->init(name, typeid(bool), base::PropertyTypeSize<bool>, nullptr);
    made->init<T>(member);
    return made;
  };
  auto* url = new TProperty;
  url->init("url", &T::SetUrl, nullptr);
  url->initGet(&T::GetUrl);
  url->initGetStr(&T::GetUrl);
  return TClass<>::Register<T>(
      "EleRtmpClient-ele-rtmp-client-muxer-sink",
      {url, field("vcopy", &T::_vcopy), field("acopy", &T::_acopy),
       Getter("rtmp_sts", &T::RtmpConnectStatus), Getter("rtmp_quality", &T::RtmpConnectQuality)});
}

void RegisterEleRtmpClient(const char* /*name*/) {
  constexpr unsigned int Version = 0x10001;
  IClass* cl = RegisterEleRtmpClientClass();
  if (cl) cl->Init("pluginrtmp", Version, "Velmora", "plugin.author", "EleRtmpClient");
}

}  // namespace nimbo::plugin::rtmp
