#pragma once

#include "nimbo/base/api.h"

namespace nimbo::stream {

/// One end of a link between two elements. [control]
class NIMBO_API IPort {
 public:
  virtual ~IPort();
  virtual bool IsOutput() const = 0;
  virtual bool Linked() const = 0;
  /// The capabilities text ("h264", "aac"); lives as long as the port.
  virtual const char* Caps() const = 0;
  /// Links this port with `other`, of which one must be an output and neither linked yet, apart
  /// from a pipeline's port, which is linked to the port that feeds the pipeline.
  virtual bool Link(IPort& other) = 0;
};

}  // namespace nimbo::stream
