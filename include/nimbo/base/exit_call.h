#pragma once

#include <functional>
#include <utility>

namespace nimbo::base {

/// Runs a function at the end of a scope, to undo a set-up that was left half done. Emptying it
/// with Clear dismisses the guard. A function that throws ends the process.
class ExitCall {
 public:
  explicit ExitCall(std::function<void()> call) : _call(std::move(call)) {}
  ExitCall(const ExitCall&) = delete;
  ExitCall& operator=(const ExitCall&) = delete;
  ~ExitCall() noexcept {
    if (_call) _call();
  }

  void Clear() noexcept { _call = nullptr; }

 private:
  std::function<void()> _call;
};

}  // namespace nimbo::base
