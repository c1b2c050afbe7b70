#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "nimbo/base/ostream.h"
#include "nimbo/base/property.h"

namespace nimbo::base {

/// Size in bytes that a property's type has on the 32-bit target; a display label.
template <class T>
constexpr int PropertyTypeSize = std::is_same_v<T, bool> ? 1 : 4;

/// A property bound to members of a class: setters `bool (T::*)(A)`, getters `R (T::*)()` (const or
/// not) and data members `bool T::*`. Member functions are called through the object's own table,
/// so a virtual one dispatches. Every slot raises std::bad_cast for an object that is no `T`.
class TProperty : public IProperty {
 public:
  TProperty() {
    _shown = true;
    _persistent = true;
  }

  /// A setter that takes the text as it is; typed and text form.
  template <class T>
  TProperty(const char* name, bool (T::*setter)(const char*), const char* description)
      : TProperty() {
    init(name, setter, description);
  }

  using IProperty::init;

  /// A setter, typed and as text.
  template <class T, class A>
  void init(const char* name, bool (T::*setter)(A), const char* description) {
    IProperty::init(name, typeid(A), PropertyTypeSize<A>, description);
    set = [setter](object& instance, void* buffer) {
      return (dynamic_cast<T&>(instance).*setter)(*static_cast<A*>(buffer));
    };
    initSetStr(setter);
  }

  /// A data member, read and written, typed and as text. It may be written while another thread
  /// works with the object: whoever reads it there loads it atomically.
  template <class T>
  void init(bool T::*field) {
    const auto read = [field](object& instance) {
      return __atomic_load_n(&(dynamic_cast<T&>(instance).*field), __ATOMIC_RELAXED);
    };
    const auto write = [field](object& instance, bool value) {
      __atomic_store_n(&(dynamic_cast<T&>(instance).*field), value, __ATOMIC_RELAXED);
      return true;
    };
    bindRead(read);
    bindText(read);
    set = [write](object& instance, void* buffer) {
      return write(instance, *static_cast<const bool*>(buffer));
    };
    setStr = [write](object& instance, const char* text) {
      bool value = false;
      return text && ConvertToImpl(text, value) && write(instance, value);
    };
  }

  /// A getter: typed form and print.
  template <class T, class R>
  void initGet(R (T::*getter)()) {
    bindRead(Caller<T>(getter));
  }
  template <class T, class R>
  void initGet(R (T::*getter)() const) {
    bindRead(Caller<T>(getter));
  }

  /// A getter's text form.
  template <class T, class R>
  void initGetStr(R (T::*getter)()) {
    bindText(Caller<T>(getter));
  }
  template <class T, class R>
  void initGetStr(R (T::*getter)() const) {
    bindText(Caller<T>(getter));
  }

  /// A setter's text form. A null text is refused before the object is touched, except by a string
  /// setter, whose value is built first: the standard library then raises std::logic_error.
  template <class T, class A>
  void initSetStr(bool (T::*setter)(A)) {
    setStr = [setter](object& instance, const char* text) {
      if constexpr (std::is_same_v<A, std::string>) {
        std::string value(text);
        return text && (dynamic_cast<T&>(instance).*setter)(std::move(value));
      } else if constexpr (std::is_same_v<A, const char*>) {
        return text && (dynamic_cast<T&>(instance).*setter)(text);
      } else if constexpr (std::is_same_v<A, bool>) {
        bool value = false;
        return text && ConvertToImpl(text, value) && (dynamic_cast<T&>(instance).*setter)(value);
      } else {
        static_assert(std::is_pointer_v<A>, "a text, a truth value or a pointer");
        if (!text) return false;
        const std::uintptr_t address = std::strtoul(text, nullptr, 16);
        return (dynamic_cast<T&>(instance).*setter)(reinterpret_cast<A>(address));
      }
    };
  }

 private:
  template <class T, class Getter>
  static auto Caller(Getter getter) {
    return [getter](object& instance) { return (dynamic_cast<T&>(instance).*getter)(); };
  }

  /// The typed form and print of what `read` gives for an object.
  template <class Read>
  void bindRead(Read read) {
    using Value = decltype(read(std::declval<object&>()));
    get = [read](object& instance, void* buffer) {
      *static_cast<Value*>(buffer) = read(instance);
      return true;
    };
    print = [read](ostream& out, object& instance) { out << read(instance) << "\n"; };
  }

  /// The text form of what `read` gives for an object.
  template <class Read>
  void bindText(Read read) {
    getStr = [read](object& instance, std::string& text) {
      ostream_string out(text);
      out << read(instance);
      return true;
    };
  }
};

}  // namespace nimbo::base
