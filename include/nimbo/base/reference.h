#pragma once

#include <atomic>

#include "nimbo/base/api.h"

namespace nimbo::base {

/// A counted object: created with one reference, destroyed when the last one is released. [any]
class NIMBO_API Reference {
 public:
  Reference(const Reference&) = delete;
  Reference& operator=(const Reference&) = delete;

  void Hold() noexcept { _references.fetch_add(1, std::memory_order_relaxed); }
  void Release() noexcept {
    if (_references.fetch_sub(1, std::memory_order_acq_rel) == 1) Destroy();
  }

 protected:
  Reference() = default;
  virtual ~Reference();
  /// Called once, by whoever released the last reference.
  virtual void Destroy() noexcept { delete this; }
  /// How many references there are now; only exact while the caller holds the only one.
  int References() const noexcept { return _references.load(std::memory_order_acquire); }

 private:
  std::atomic<int> _references{1};
};

}  // namespace nimbo::base
