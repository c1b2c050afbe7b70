#pragma once

#include <atomic>
#include <chrono>
#include <thread>

namespace nimbo::test {

/// How much of a machine's time others take: what short sleeps have been late in all, in the
/// background, since this was made.
class Lateness {
 public:
  Lateness() : _thread([this] { Run(); }) {}
  Lateness(const Lateness&) = delete;
  Lateness& operator=(const Lateness&) = delete;
  ~Lateness() {
    _ended = true;
    _thread.join();
  }

  /// What a bound in time has to grant besides its limit: the work of the case itself, and what was
  /// lost to others by each of the threads that wait for each other in it.
  std::chrono::milliseconds Slack() const {
    constexpr std::chrono::milliseconds Work{500};
    constexpr int ThreadsInTurn = 4;
    return Work + ThreadsInTurn * std::chrono::milliseconds(_microseconds / 1000);
  }

 private:
  void Run() {
    while (!_ended) {
      using Clock = std::chrono::steady_clock;
      constexpr std::chrono::milliseconds Nap{5};
      const auto start = Clock::now();
      std::this_thread::sleep_for(Nap);
      _microseconds +=
          std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start - Nap).count();
    }
  }

  std::atomic<bool> _ended{false};
  std::atomic<long long> _microseconds{0};
  std::thread _thread;
};

}  // namespace nimbo::test
