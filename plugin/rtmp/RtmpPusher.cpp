#include "plugin/rtmp/RtmpPusher.h"

#include <cstdio>
#include <new>
#include <utility>

#include "base/reflect/Class.h"
#include "base/reflect/TClass.h"
#include "common/SigPipeGuard.h"
#include "nimbo/base/platform.h"
#include "plugin/element/Getter.h"
#include "plugin/rtmp/UnitMarker.h"
#include "sync/Atomic.h"

namespace nimbo::plugin::rtmp {

using base::AttrSet;
using base::IClass;
using base::TClass;
using base::TProperty;
using log::Colour;
using log::Failure;
using log::Line;
using log::Site;
using stream::Application;
using stream::IMedia;
using stream::Packet;
using stream::PacketRing;

namespace {

[[gnu::used]] int s_unit = MarkUnit();

constexpr Profile PusherProfile = {
    {
        /*connectServer=*/{__FILE__, __LINE__, "ConnectServer"},
        /*setRtmpPacketSize=*/{__FILE__, __LINE__, "SetRtmpPacketSize"},
        /*sendRtmpPacket=*/{__FILE__, __LINE__, "SendRtmpPcaket"},
        /*sendH264=*/{__FILE__, __LINE__, "SendH264"},
        /*sendAac=*/{__FILE__, __LINE__, "SendAAC"},
        /*sendBufferCreate=*/{__FILE__, __LINE__, "SendBufferCreate"},
        /*sendBufferRealloc=*/{__FILE__, __LINE__, "SendBufferRealloc"},
        // Lines of this one have always named the function so, and tools look for it.
        /*sendBufferCheck=*/{__FILE__, __LINE__, "operator()"},
    },
    /*detailed=*/false,
    /*clearsBuffers=*/true,
    /*bracketsEachCall=*/false,
    /*refusesShortFrames=*/false,
    /*usesLargeChunks=*/false};

SequenceCounters s_counters;

constexpr std::chrono::milliseconds PopTimeout{500};
constexpr std::chrono::milliseconds ReconnectPause{1000};

bool HasCodec(const IMedia* media, const char* codec) {
  return media && base::Hash(media->Codec()) == base::Hash(codec);
}

}  // namespace

RtmpStreamPusher::RtmpStreamPusher()
    : MediaSender(PusherProfile, s_counters), _thread("rtmp", 19, 10, 65536) {}

RtmpStreamPusher::~RtmpStreamPusher() = default;

// ---- properties ---------------------------------------------------------------------------------

bool RtmpStreamPusher::SetUrl(const char* url) {
  if (!url) return false;
  _url.Set(url);
  return true;
}

bool RtmpStreamPusher::SetCfg(const char* cfg) {
  if (!cfg) return false;
  _cfg = cfg;
  return true;
}

bool RtmpStreamPusher::RtmpConnectStatus() { return _rtmp.Connected(); }

int RtmpStreamPusher::RtmpConnectQuality() {
  constexpr int Lost = 100;
  constexpr int Percent = 100;
  const sync::Lock lock(_quality_mutex);
  if (!_quality_ring || !_vid_reader || !sync::Load(_vid_reader->ring)) return 0;
  if (_vid_lost) return Lost;
  if (_vid_ring_size == 0) return 0;
  const auto lag =
      static_cast<std::int32_t>(_quality_ring->WritePosition() - sync::Load(_vid_reader->position));
  return static_cast<int>(std::int64_t{lag} * Percent / _vid_ring_size);
}

// ---- capture source -----------------------------------------------------------------------------

bool RtmpStreamPusher::StartAVSource() {
  if (_cfg.empty()) return Failure(Site::Here(), "_cfg.empty()");
  AttrSet attrs = Object::AttrSetInit({{"type", "Application"}, {"serialize", _cfg.c_str()}});
  _app.reset(IClass::New<Application>(attrs));
  if (_app && !_app->Configure(attrs)) _app.reset();
  if (!_app) return Failure(Site::Here(), "!_app");
  if (!_app->StatusChange(IStatus::ready)) {
    return Failure(Site::Here(), "!_app->StatusChange(IStatus::ready)");
  }
  std::vector<PacketRing*> vrlist;
  _app->OutputList(vrlist, true);
  if (vrlist.empty()) return Failure(Site::Here(), "vrlist.empty()");
  for (PacketRing* ring : vrlist) {
    constexpr auto NoLimit = std::chrono::nanoseconds::max();
    if (HasCodec(ring->Media(NoLimit), "h264")) {
      const sync::Lock lock(_quality_mutex);
      _vid_reader.reset(ring->CreateReader(nullptr));
      _vid_ring_size = ring->Size();
      _quality_ring = ring;
    }
    if (HasCodec(ring->Media(NoLimit), "aac")) _aud_reader.reset(ring->CreateReader(nullptr));
  }
  return true;
}

bool RtmpStreamPusher::StopAVSource() {
  if (!_app) return true;
  _app->StatusChange(IStatus::null);
  _app.reset();
  return true;
}

// ---- life cycle ---------------------------------------------------------------------------------

bool RtmpStreamPusher::Open() {
  vfp_enable();
  DestroyBuffers();  // those of an Open that failed, where the host did not close in between
  _vid_buffer = SendBufferCreate(VideoSize);
  if (!_vid_buffer) return Failure(Site::Here(), "!_vid_buffer");
  _aud_buffer = SendBufferCreate(AudioSize);
  if (!_aud_buffer) return Failure(Site::Here(), "!_aud_buffer");
  BeginSession();
  const std::string url = _url.Get();
  std::printf("connect server:%s,%s\n", url.c_str(), _cfg.c_str());
  std::fflush(stdout);
  if (!ConnectServer(url.c_str())) {
    EndSession();
    return Failure(Site::Here(), "!ConnectServer(_url.c_str())");
  }
  if (!StartAVSource()) return Failure(Site::Here(), "!StartAVSource()");
  _running = true;
  if (!_thread.Once([this] { SendLoop(); }))
    return Failure(Site::Here(), "!_thread.Once(SendLoop)");
  vfp_disable();
  return true;
}

bool RtmpStreamPusher::Start() {
  if (!_app || !_app->StatusChange(IStatus::play)) {
    return Failure(Site::Here(), "!_app->StatusChange(IStatus::play)");
  }
  return IStatus::Start();
}

bool RtmpStreamPusher::Stop() {
  if (!_app || !_app->StatusChange(IStatus::ready)) {
    return Failure(Site::Here(), "!_app->StatusChange(IStatus::ready)");
  }
  return IStatus::Stop();
}

bool RtmpStreamPusher::Close() {
  {
    const sync::Lock lock(_sleep_mutex);
    _running = false;
  }
  _sleep_ended.NotifyAll();
  _rtmp.Cancel();
  if (_aud_reader) _aud_reader->WaitAbort();
  if (_vid_reader) _vid_reader->WaitAbort();
  _thread.Join();
  // No reader outlives its ring.
  {
    const sync::Lock lock(_quality_mutex);
    _quality_ring = nullptr;
    _vid_reader.reset();
  }
  _aud_reader.reset();
  StopAVSource();
  DisConnectServer();
  EndSession();
  DestroyBuffers();
  return true;
}

// ---- send loop ----------------------------------------------------------------------------------

bool RtmpStreamPusher::Fill(const std::unique_ptr<Reader>& reader, Held<Packet>& slot) {
  if (slot || !reader || !sync::Load(reader->ring)) return slot != nullptr;
  Packet* popped = nullptr;
  if (reader->Pop(popped, PopTimeout)) slot = Share(*popped);
  return true;
}

bool RtmpStreamPusher::SendRtmpPcaket(RTMPPacket* packet, unsigned char type, char* data,
                                      unsigned int size, unsigned int timestamp) {
  return SendMessage(packet, type, data, size, timestamp);
}

bool RtmpStreamPusher::SendLoop() {
  vfp_enable();
  const SigPipeGuard guard;
  Held<Packet> video;
  Held<Packet> audio;
  while (_running) {
    const bool waitedForVideo = Fill(_vid_reader, video);
    const bool waitedForAudio = Fill(_aud_reader, audio);
    if (!video && !audio) {
      if (!waitedForVideo && !waitedForAudio) Sleep(PopTimeout);
      continue;
    }
    const bool takeAudio = !video || (audio && audio->TimeStamp() < video->TimeStamp());
    try {
      Push(std::move(takeAudio ? audio : video));
    } catch (const std::bad_alloc&) {
      // That packet is lost; there may be memory again for a later one.
      Sleep(ReconnectPause);
    }
  }
  audio.reset();
  video.reset();
  RepeatHeaders();
  constexpr short StreamEnd = 1;         // RTMP 1.0, 7.1.7: Stream EOF
  constexpr unsigned int StreamId = 20;  // what servers have always been sent
  static_cast<void>(_rtmp.SendControl(StreamEnd, StreamId, 0));
  vfp_disable();
  return true;
}

void RtmpStreamPusher::Push(Held<Packet> chosen) {
  bool sent = true;
  if (HasCodec(chosen->Media(), "h264")) sent = SendH264(chosen.get());
  if (HasCodec(chosen->Media(), "aac")) sent = SendAAC(chosen.get());
  chosen.reset();
  if (!sent) Reconnect();
}

void RtmpStreamPusher::Reconnect() {
  constexpr const char* Function = "SendLoop";
  Line(Colour::Red, {__FILE__, __LINE__, Function}) << "push pkt fail,try to reconnect";
  if (_rtmp.IsConnected()) return;
  if (!ConnectServer(_url.Get().c_str())) {
    Sleep(ReconnectPause);
    return;
  }
  RepeatHeaders();
  Line(Colour::Green, {__FILE__, __LINE__, Function}) << "reconnect success,continue";
}

void RtmpStreamPusher::Sleep(std::chrono::milliseconds duration) {
  const auto end = std::chrono::steady_clock::now() + duration;
  const sync::Lock lock(_sleep_mutex);
  while (_running && _sleep_ended.WaitUntil(_sleep_mutex, end)) {
  }
}

// ---- registration -------------------------------------------------------------------------------

IClass* RegisterRtmpStreamPusher(const char* name) {
  using T = RtmpStreamPusher;
  IClass* cl = TClass<>::Register<T>(
      name ? name : "RtmpStreamPusher-rtmp-pusher",
      {new TProperty("addr", &T::SetUrl, nullptr), new TProperty("cfg", &T::SetCfg, nullptr),
       Getter("rtmp_sts", &T::RtmpConnectStatus), Getter("rtmp_quality", &T::RtmpConnectQuality)});
  if (cl) cl->Init("pluginrtmp", 0, nullptr, nullptr, nullptr);
  return cl;
}

}  // namespace nimbo::plugin::rtmp
