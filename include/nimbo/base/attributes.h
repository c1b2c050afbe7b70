#pragma once

#include <string>

#include "nimbo/base/api.h"
#include "nimbo/base/attr_set.h"

namespace nimbo::base {

/// Gives and takes all settings of an object at once.
class NIMBO_API IAttributes {
 public:
  virtual ~IAttributes();
  /// [control] Adds the object's settings to `attrs`.
  virtual bool toAttrSet(AttrSet& attrs) = 0;
  /// [control] Applies settings. False when one of them is refused.
  virtual bool fromAttrSet(AttrSet& attrs) = 0;

  /// [control] The settings in text form; true always. See base/reflect/TClass.h.
  inline bool toString(std::string& text);
  /// [control] Applies settings given in text form; the result is that of fromAttrSet.
  inline bool fromString(const char* text);
};

}  // namespace nimbo::base
