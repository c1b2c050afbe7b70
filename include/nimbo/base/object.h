#pragma once

#include "nimbo/base/api.h"
#include "nimbo/base/attr_set.h"
#include "nimbo/base/names.h"

namespace nimbo::base {

class IClass;

/// The root of everything that the class registry can create.
class NIMBO_API object : public object_keywords {
 public:
  object();
  object(const object&) = delete;
  object& operator=(const object&) = delete;
  /// [control] Leaves every list that the object is in, and waits until nobody pins it any more.
  ~object() override;

  /// [control] Ends the object's life: takes it down (stops and closes it) and destroys it. An
  /// override takes the object down and then calls this one, which makes it unfindable, waits for
  /// its pins and deletes it.
  virtual void Release();
  /// [control] Applies the settings in `attrs`; the keys "type" and "name" are passed over.
  bool Configure(AttrSet& attrs) { return configure(attrs); }

  /// The dynamic cast to `T`: null for null and for an object of another class.
  template <class T>
  static T* AsType(object* instance);

 protected:
  /// [control] The first setting that is refused ends it, with one console line that names it.
  virtual bool configure(AttrSet& attrs);

 private:
  friend class IClass;
  friend class nimbo::Framework;
  IClass* _class = nullptr;
  int _pins = 0;
};

}  // namespace nimbo::base
