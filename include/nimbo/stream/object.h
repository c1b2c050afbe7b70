#pragma once

#include <initializer_list>
#include <string>
#include <utility>

#include "nimbo/base/attributes.h"
#include "nimbo/base/object.h"
#include "nimbo/base/param.h"
#include "nimbo/stream/status.h"

namespace nimbo::stream {

/// An object of the streaming framework: it has properties, can be configured and has a status.
class NIMBO_API Object : public base::object,
                         public base::IParam,
                         public base::IAttributes,
                         public IStatus {
 public:
  using Pair = std::pair<const char*, const char*>;

  Object();
  ~Object() override;

  /// [control] Called once, after the object was created and named. `type` is the name that it was
  /// asked for by, `cfgs` a configuration text or null, `owner` the object that it belongs to or
  /// null. False destroys the object.
  virtual bool Initialize(const char* type, const char* name, const char* cfgs,
                          base::object* owner);
  /// [control] Stops, closes and destroys the object.
  void Release() override;

  /// [any] An attribute set with exactly these entries, in order. Null values are left out.
  static base::AttrSet AttrSetInit(std::initializer_list<Pair> pairs);

  /// Parameters are the properties of the object's class, and "status" and "name".
  bool GetWithType(const char* name, void* value, const std::type_info& requested,
                   const Accept& accept) override;
  bool SetStr(const char* key, const char* value) override;
  bool GetStr(const char* key, std::string& value) override;

  bool toAttrSet(base::AttrSet& attrs) override;
  bool fromAttrSet(base::AttrSet& attrs) override;

 protected:
  /// [control] Sets one property after the other; the first one that fails ends it, with one
  /// console line that names it.
  bool configure(base::AttrSet& attrs) override;
};

}  // namespace nimbo::stream
