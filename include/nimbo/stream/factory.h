#pragma once

#include "nimbo/base/object_list.h"

namespace nimbo::stream {

/// The global list of objects, and what the framework knows about creating them.
class NIMBO_API Factory : public base::ObjectListSafe {
 public:
  static Factory& Globle();
  /// [control] Registers `layout` as a variant of the layout `common`. A pair is kept once.
  virtual bool LayoutAdd(const char* common, const char* layout) = 0;
};

}  // namespace nimbo::stream
