#pragma once

#include "nimbo/stream/object.h"

namespace nimbo::stream {

/// A stand-alone object that is reached by its name.
class NIMBO_API Service : public Object {
 public:
  Service();
  ~Service() override;

  /// [control] Creates the service `name` of the registered class `type` and puts it into the
  /// global object list, which owns it. `cfgs` is a configuration text or null. Null, with one
  /// console line that says why, when there is no such class or the name is in use.
  static Service* New(const char* type, const char* name, const char* cfgs);
};

}  // namespace nimbo::stream
