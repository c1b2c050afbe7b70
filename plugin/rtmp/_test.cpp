#include "plugin/rtmp/_test.h"

#include <cstdio>
#include <string>

#include "base/reflect/Class.h"
#include "log/Line.h"
#include "nimbo/base/command.h"
#include "nimbo/base/exit_call.h"
#include "nimbo/stream/application.h"
#include "nimbo/stream/factory.h"
#include "nimbo/stream/service.h"
#include "plugin/rtmp/EleRtmpClient.h"
#include "plugin/rtmp/PipelineRtmpClient.h"
#include "plugin/rtmp/RtmpPusher.h"
#include "plugin/rtmp/UnitMarker.h"

using nimbo::base::AttrSet;
using nimbo::base::ExitCall;
using nimbo::base::IClass;
using nimbo::log::Colour;
using nimbo::log::Failure;
using nimbo::log::Line;
using nimbo::log::Site;
using nimbo::stream::Application;
using nimbo::stream::Factory;
using nimbo::stream::Object;
using nimbo::stream::Service;

namespace {

/// A place in the commands. Their line numbers are part of the printed text, which tools of our
/// users look for, so they are stated here and do not move with the code.
constexpr Site Place(int line, const char* function) { return {__FILE__, line, function}; }

constexpr char DefaultEncoder[] = "h264-0,W=1920,H=1080,fr=30,br=6000000,gopTypeStr=ibbp,gop=30";
constexpr char CaptureTemplate[] =
    "type=pipeline,serialize={shm-source:connect={pv:%s,plenckeys=vfrc-fifo}+fifofilter:max=60+"
    "RingSink}+type=pipeline,serialize={shm-source:connect={pv:aac-1,plenckeys=fifo}+fifofilter:"
    "max=128+RingSink}";
constexpr char default_url[] = RTMP_DEFAULT_URL;

bool RunPusherCommand(AttrSet& attrs) {
  return fwRtmpPusher(attrs.Get("p0"), attrs.Get("p1"), attrs.Get("p2")) != 0;
}

/// The application of that name, which the framework's object list holds; null when there is none.
Application* FindClient(const std::string& name) {
  return Factory::Globle().Find<Application>(name.c_str(), true);
}

}  // namespace

const char* __MODULE_string = "pluginrtmp@version:1.0.1.*.6872";

// The list entry comes before the command, in this order.
int __cb_register_PluginRtmp = nimbo::base::ReflectAdd(RegisterPluginRtmp, 0, "PluginRtmp");
namespace {
[[gnu::used]] int s_unit = nimbo::plugin::rtmp::MarkUnit();
}
int __register_cmd_rtmp = nimbo::base::omfCmdRegister("rtmp", RunPusherCommand);

// ---- registration -------------------------------------------------------------------------------

void RegisterPluginRtmp(const char* /*name*/) {
  nimbo::plugin::rtmp::RegisterRtmpStreamPusher(nullptr);
  nimbo::plugin::rtmp::RegisterEleRtmpClient(nullptr);
  nimbo::plugin::rtmp::RegisterPipelineRtmpClient(nullptr);
}

RtmpOptionCallback GetCbRegisterPluginRtmp(RtmpOptionCallback callback) {
  static RtmpOptionCallback stored = nullptr;
  if (callback) stored = callback;
  return stored;
}

void RegisterOptPluginRtmp(const char* options) {
  if (const RtmpOptionCallback callback = GetCbRegisterPluginRtmp(nullptr)) callback(options);
}

// ---- pusher -------------------------------------------------------------------------------------

int fwRtmpPusher(const char* p0, const char* /*p1*/, const char* /*p2*/) {
  constexpr const char* Function = "fwRtmpPusher";
  char buf[2048];
  const int length = std::snprintf(buf, sizeof buf, CaptureTemplate, p0 ? p0 : DefaultEncoder);
  if (length < 0 || static_cast<std::size_t>(length) >= sizeof buf) {
    Failure(Place(86, Function), "length >= sizeof(buf)",
            "the video-encoder selection is too long: the configuration takes ", length,
            " bytes, room is for ", sizeof buf - 1);
    return 0;
  }
  std::printf("====buf:\n%s\n====\n", buf);
  std::fflush(stdout);
  Service* server = Service::New("RtmpStreamPusher", "rtmp-pusher-service", nullptr);
  if (!server) return Failure(Place(88, Function), "!server");
  if (!server->Set("addr", default_url)) {
    return Failure(Place(89, Function), "!server->Set(\"addr\",default_url)");
  }
  if (!server->Set("cfg", buf)) {
    return Failure(Place(90, Function), "!server->Set(\"cfg\",buf)");
  }
  if (!server->Set("status", "play")) {
    return Failure(Place(91, Function), "!server->Set(\"status\",\"play\")");
  }
  return 1;
}

int fwRtmpService(const char* p0, const char* /*p1*/, const char* /*p2*/) {
  constexpr const char* Function = "fwRtmpService";
  Service* server = Service::New(p0 ? p0 : "rtmp-server", "rtmp-server", nullptr);
  if (!server) {
    Failure(Place(104, Function), "!server");
    return -1;
  }
  if (!server->Set("status", "play")) {
    Failure(Place(105, Function), "!server->Set(\"status\",\"play\")");
  }
  return 0;
}

// ---- client -------------------------------------------------------------------------------------

int fwRtmpClientStart(const char* name, const char* url, const char* cfgs) {
  constexpr const char* Function = "fwRtmpClientStart";
  if (!name) return Failure(Place(12, Function), "!name");
  if (!url) return Failure(Place(13, Function), "!url");
  if (!cfgs) return Failure(Place(14, Function), "!cfgs");
  const std::string app_name = name;
  if (app_name.empty()) return Failure(Place(17, Function), "app_name.empty()", "Invalid name");
  Line(Colour::Green, Place(18, Function)) << "app_name=" << app_name;
  if (FindClient(app_name)) {
    return Failure(Place(21, Function), "exist", "The rtmp client named ", app_name,
                   " already exists");
  }
  const std::string app_cfgs = std::string(cfgs) + "+rtmp-client:link=all,url=" + url;
  Line(Colour::Green, Place(24, Function)) << "app_cfgs=" << app_cfgs;

  AttrSet attrs = Object::AttrSetInit(
      {{"type", "Application"}, {"name", app_name.c_str()}, {"serialize", app_cfgs.c_str()}});
  auto* client = IClass::New<Application>(attrs);
  if (client && !client->Configure(attrs)) {
    client->Release();
    client = nullptr;
  }
  if (!client) return Failure(Place(30, Function), "!client", "failed to create rtmp client");
  Line(Colour::Green, Place(30, Function)) << "(void*)client=" << static_cast<void*>(client);
  ExitCall release([client] { client->Release(); });
  if (!client->StatusSet("play")) {
    return Failure(Place(33, Function), "!client->StatusSet(\"play\")", "Rtmp client named ",
                   app_name, " failed to start");
  }
  release.Clear();
  return 1;
}

int fwRtmpClientStop(const char* name, const char* /*p1*/, const char* /*p2*/) {
  constexpr const char* Function = "fwRtmpClientStop";
  const std::string app_name = name;
  if (app_name.empty()) return Failure(Place(41, Function), "app_name.empty()", "Invalid name");
  Line(Colour::Green, Place(41, Function)) << "app_name=" << app_name;
  Application* client = FindClient(app_name);
  if (!client) {
    return Failure(Place(43, Function), "!client", "Did not find the rtmp client named ", app_name);
  }
  const void* address = client;
  client->Release();
  Line(Colour::Green, Place(44, Function)) << "(void*)client=" << address;
  return 1;
}
