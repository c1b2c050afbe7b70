#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <typeinfo>
#include <vector>

#include "nimbo/base/api.h"
#include "nimbo/base/names.h"
#include "nimbo/base/object.h"
#include "nimbo/base/ostream.h"
#include "nimbo/base/property.h"

namespace nimbo::base {

/// A registered class: its name and keywords, its properties and how its objects are made.
class NIMBO_API IClass : public object_keywords {
 public:
  /// [control] Takes over the properties, which are freed with the class.
  IClass(const char* name, std::initializer_list<IProperty*> properties);
  ~IClass() override;

  /// [any] Writes "NAME: PROPERTY, PROPERTY", without a newline.
  virtual ostream& operator>>(ostream& out) const;
  /// [any] Prints all readable properties of `instance`, one "NAME=VALUE" a line, in one piece.
  /// Raises std::bad_cast for an object of another class.
  virtual void print(ostream& out, const object& instance) const;

  /// The registry of all classes; opaque, see Find and Register.
  class Registry;
  /// [any]
  static Registry& Globle();
  /// [any] The class called `name`: that of exactly this identifier, else, unless `exact`, the
  /// first one registered that has all its keywords. Null when there is none.
  static IClass* Find(const char* name, bool exact);
  /// [control] Adds a class to the registry, which owns it from then on. Returns it.
  static IClass* Register(IClass* cl);
  /// [control] States where the class comes from. The texts may be null; they are not copied.
  void Init(const char* module, unsigned int version, const char* vendor, const char* author,
            const char* description);

  /// [control] Creates the object that `attrs` describes ("type", and "name" where it has one), or
  /// finds the existing one of that name. Null when there is no such class, it needs arguments, or
  /// the object is no `T`. See base/reflect/Class.h.
  template <class T>
  static T* New(AttrSet& attrs);
  /// [any] An existing object that a creation under `name` stands for; null when there is none.
  object* FindBeforeNew(const char* name);
  /// [control] Names and initialises a fresh object from the attributes and puts it into the global
  /// list. When that fails the object has been destroyed and the result is null.
  object* initObject(object* instance, AttrSet& attrs);

 protected:
  const std::type_info* _type = nullptr;
  std::uint32_t _object_size = 0;
  const std::type_info* _signature = nullptr;  ///< function type of the constructor's arguments
  std::function<bool(object&)> _is_instance;
  std::function<object*(void*)> _creator;

 private:
  template <class... Args>
  friend class TClass;
  friend class nimbo::Framework;
  /// Writes the line of a failed check of the registration glue. See base/reflect/FailedCheck.h.
  static inline void FailedCheck(const char* file, int line, const char* function,
                                 const std::string& condition);
  /// Gives a fresh object its class and name and initialises it; destroys it when that fails.
  object* Complete(object* instance, const char* type, const char* name, const char* cfgs,
                   object* owner);

  std::vector<IProperty*> _properties;
  const char* _module = nullptr;
  unsigned int _version = 0;
  const char* _vendor = nullptr;
  const char* _author = nullptr;
  const char* _description = nullptr;
};

}  // namespace nimbo::base
