#pragma once

#include "nimbo/base/api.h"

namespace nimbo::base {

/// A counted object: created with one reference, destroyed when the last one is released. [any]
class NIMBO_API Reference {
 public:
  Reference(const Reference&) = delete;
  Reference& operator=(const Reference&) = delete;

  void Hold() noexcept { __atomic_fetch_add(&_references, 1, __ATOMIC_RELAXED); }
  void Release() noexcept {
    if (__atomic_sub_fetch(&_references, 1, __ATOMIC_ACQ_REL) == 0) Destroy();
  }

 protected:
  Reference() = default;
  virtual ~Reference();
  /// Called once, by whoever released the last reference.
  virtual void Destroy() noexcept { delete this; }
  /// How many references there are now; only exact while the caller holds the only one.
  int References() const noexcept { return __atomic_load_n(&_references, __ATOMIC_ACQUIRE); }

 private:
  int _references = 1;
};

}  // namespace nimbo::base
