#include "plugin/rtmp/PipelineRtmpClient.h"

#include "base/reflect/TClass.h"
#include "log/Line.h"
#include "nimbo/base/exit_call.h"
#include "nimbo/stream/factory.h"
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
using stream::Factory;
using stream::IElement;
using stream::IPort;

namespace {

[[gnu::used]] int s_unit = MarkUnit();

/// A progress line with an address.
void Tell(const Site& site, const char* what, const void* address) {
  Line(Colour::Cyan, site) << what << address;
}

}  // namespace

PipelineRtmpClient::PipelineRtmpClient() = default;

PipelineRtmpClient::~PipelineRtmpClient() = default;

bool PipelineRtmpClient::Initialize(const char* type, const char* name, const char* cfgs,
                                    base::object* owner) {
  Tell(Site::Here(), "(void*)this=", this);
  if (!Pipeline::Initialize(type, name, cfgs, owner)) {
    return Failure(Site::Here(), "!Pipeline::Initialize(type,name,cfgs,owner)");
  }
  ExitCall destroyBoth([this] {
    for (IElement** element : {&_av_sync, &_rtmp_client}) {
      delete *element;
      *element = nullptr;
    }
  });
  _av_sync = IElement::New("ele-sync", "avsync", this, nullptr);
  if (!_av_sync) return Failure(Site::Here(), "!ctl");
  _rtmp_client = IElement::New("EleRtmpClient", "EleRtmpClient", this, nullptr);
  if (!_rtmp_client) return Failure(Site::Here(), "!client");
  destroyBoth.Clear();
  return true;
}

bool PipelineRtmpClient::beforeLinkFrom(IPort* port) {
  return AddRing(port) || Failure(Site::Here(), "!AddRing(port)");
}

bool PipelineRtmpClient::AddRing(IPort* port0) {
  if (!_rtmp_client) return Failure(Site::Here(), "!_rtmp_client");
  Tell(Site::Here(), "(void*)_rtmp_client=", _rtmp_client);
  if (!_av_sync) return Failure(Site::Here(), "!_av_sync");
  Tell(Site::Here(), "(void*)_av_sync=", _av_sync);
  if (!port0) return Failure(Site::Here(), "!port0");
  if (!port0->IsOutput()) return Failure(Site::Here(), "!port0->IsOutput()");
  if (port0->Linked()) return Failure(Site::Here(), "port0->Linked()");
  const char* caps = port0->Caps();
  Line(Colour::Cyan, Site::Here()) << "port0->Caps()=" << caps;

  IElement* src = IElement::New("BridgeSource", caps, this, caps);
  if (!src) return Failure(Site::Here(), "!src");
  Tell(Site::Here(), "(void*)src=", src);
  ExitCall destroySource([src] { delete src; });
  if (_ports.empty() || !_ports.back()->Link(*port0)) {
    return Failure(Site::Here(), "!_ports.back()->Link(*port0)");
  }
  if (!_rtmp_client->PortAdd(caps, "in")) {
    return Failure(Site::Here(), "!_rtmp_client->PortAdd(caps,\"in\")");
  }
  ActiveElement(_av_sync);
  if (!src->Link(*_av_sync)) return Failure(Site::Here(), "!src->Link(*_av_sync)");
  if (!_av_sync->Link(*_rtmp_client)) {
    return Failure(Site::Here(), "!_av_sync->Link(*_rtmp_client)", src->Linked(*_av_sync));
  }
  destroySource.Clear();
  return true;
}

IClass* RegisterPipelineRtmpClient(const char* name) {
  constexpr unsigned int Version = 65537;
  auto* ring = new TProperty;
  ring->init("ring", &PipelineRtmpClient::AddRing, nullptr);
  IClass* cl = TClass<>::Register<PipelineRtmpClient>(
      name ? name : "pipeline-rtmp-client-muxer-sink", {ring});
  if (cl) cl->Init("pluginrtmp", Version, "Velmora", "plugin.author", "pipeline-rtmp-client");
  Factory::Globle().LayoutAdd("layout-protocol-parser-common",
                              "layout-protocol-parser-rtmp-client");
  return cl;
}

}  // namespace nimbo::plugin::rtmp
