#include "host/capture/CaptureSource.h"
#include "host/capture/av/AvSource.h"
#include "host/capture/av/LibavLog.h"
#include "host/capture/av/LibavSource.h"
#include "host/capture/av/RtmpServer.h"
#include "host/capture/av/SimulatedSource.h"
#include "nimbo/base/api.h"

extern "C" {
#include <libavformat/avformat.h>
}

/// [control] Called once by the framework when it has loaded this module: registers the capture
/// sources and classes that need libav*.
extern "C" NIMBO_API void RegisterAvModule() {
  using namespace nimbo::capture;
  av::InstallLogFilter();
  avformat_network_init();
  auto& registry = CaptureRegistry::Globle();
  registry.Add("h264-", av::MakeSimulated<av::SimulatedCamera>,
               "simulated camera: W, H, fr, br, gop, gopTypeStr");
  registry.Add("aac-", av::MakeSimulated<av::SimulatedMicrophone>,
               "simulated microphone: rate, channel, br");
  registry.Add("av", av::LibavSource::Make,
               "file, device or network stream: url, format, pace, loop, streams, transcode, wait");
  av::AvSource::Register();
  av::RtmpServer::Register();
}
