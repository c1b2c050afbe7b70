#pragma once

#include "nimbo/base/class.h"
#include "nimbo/stream/pipeline.h"

namespace nimbo::plugin::rtmp {

/// A pipeline that publishes whatever is linked into it: for each upstream output a bridge source,
/// all of them in front of one synchroniser and one client element.
///
/// Property: "ring" (write): adds one upstream output.
class PipelineRtmpClient : public stream::Pipeline {
 public:
  PipelineRtmpClient();
  ~PipelineRtmpClient() override;

  /// [control] Makes the synchroniser and the client element.
  bool Initialize(const char* type, const char* name, const char* cfgs,
                  base::object* owner) override;
  /// [control] Adds the upstream output before the framework links it.
  bool beforeLinkFrom(stream::IPort* port) override;
  /// [control] Adds a branch for the upstream output `port0`, which must be free. False with one
  /// failure line; links that were made before the failing step stay.
  bool AddRing(stream::IPort* port0);

 private:
  stream::IElement* _av_sync = nullptr;  ///< both belong to the pipeline
  stream::IElement* _rtmp_client = nullptr;
};

/// [control] Registers the class under `name`, or "pipeline-rtmp-client-muxer-sink" when that is
/// null, and its layout.
base::IClass* RegisterPipelineRtmpClient(const char* name);

}  // namespace nimbo::plugin::rtmp
