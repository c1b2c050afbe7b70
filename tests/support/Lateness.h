#pragma once

#include <atomic>
#include <chrono>
#include <ctime>
#include <thread>

namespace nimbo::test {

/// How much of a machine's time others take: what short sleeps have been late in all, in the
/// background, since this was made, and what the process itself has had to work meanwhile.
class Lateness {
 public:
  Lateness() : _thread([this] { Run(); }) {}
  Lateness(const Lateness&) = delete;
  Lateness& operator=(const Lateness&) = delete;
  ~Lateness() {
    _ended = true;
    _thread.join();
  }

  /// What was lost to others by each of the threads that wait for each other in a case.
  std::chrono::milliseconds Lost() const {
    return ThreadsInTurn * std::chrono::milliseconds(_microseconds / 1000);
  }
  /// What a bound in time has to grant besides its limit: the work of the case itself, of which
  /// sanitizers make a multiple and with which others share the processors, and what was lost.
  std::chrono::milliseconds Slack() const {
    constexpr std::chrono::milliseconds Work{500};
    return Work + ThreadsInTurn * (Worked() - _worked) + Lost();
  }

 private:
  static constexpr int ThreadsInTurn = 4;

  static std::chrono::milliseconds Worked() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::milliseconds(time.tv_nsec / 1'000'000);
  }
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

  const std::chrono::milliseconds _worked = Worked();
  std::atomic<bool> _ended{false};
  std::atomic<long long> _microseconds{0};
  std::thread _thread;
};

}  // namespace nimbo::test
