#include "host/base/ClassRegistry.h"
#include "host/capture/CaptureRegistry.h"
#include "nimbo/stream/element.h"
#include "nimbo/stream/service.h"

namespace nimbo::stream {

namespace {

/// The classes that the libav* module registers are found before it is loaded.
[[maybe_unused]] const bool Offered = [] {
  auto& classes = base::IClass::Globle();
  classes.Offer("AvSource-av-source", typeid(IElement), capture::LoadAvModule);
  classes.Offer("RtmpServer-rtmp-server", typeid(Service), capture::LoadAvModule);
  return true;
}();

}  // namespace

}  // namespace nimbo::stream
