#include "host/capture/CaptureRegistry.h"
#include "host/capture/av/LibavLog.h"
#include "host/capture/av/LibavSource.h"
#include "host/capture/av/SimulatedCamera.h"
#include "host/capture/av/SimulatedMicrophone.h"
#include "host/elements/av/AvSource.h"
#include "host/elements/av/Recorder.h"
#include "host/elements/av/RtmpServer.h"
#include "nimbo/base/api.h"

extern "C" {
#include <libavformat/avformat.h>
}

/// [control] Called once by the framework when it has loaded this module: registers the capture
/// sources and classes that need libav*.
extern "C" NIMBO_API void RegisterAvModule() {
  using namespace nimbo;
  using namespace capture::av;
  InstallLogFilter();
  avformat_network_init();
  auto& registry = capture::CaptureRegistry::Global();
  registry.Add("h264-", MakeSimulated<SimulatedCamera>,
               "simulated camera: W, H, fr, br, gop, gopTypeStr");
  registry.Add("aac-", MakeSimulated<SimulatedMicrophone>,
               "simulated microphone: rate, channel, br");
  registry.Add("av", LibavSource::Make,
               "file, device or network stream: url, format, pace, loop, streams, transcode, wait");
  stream::AvSource::Register();
  stream::Recorder::Register();
  stream::RtmpServer::Register();
}
