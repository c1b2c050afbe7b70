#include "host/base/Thread.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <string>

#include "host/base/Console.h"
#include "host/base/Outlet.h"
#include "nimbo/base/thread.h"
#include "sync/Mutex.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define NIMBO_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define NIMBO_SANITIZED 1
#endif

namespace nimbo::base {
namespace {

/// The stack sizes that plug-ins ask for fit the device's C library. Larger frames, name look-up
/// and TLS need more elsewhere, and instrumented code needs much more.
#ifdef NIMBO_SANITIZED
constexpr std::size_t LeastStack = std::size_t{8} * 1024 * 1024;
#else
constexpr std::size_t LeastStack = std::size_t{256} * 1024;
#endif
constexpr std::size_t NameLimit = 15;  ///< bytes of a thread's name that Linux keeps

std::atomic<int> s_lost_threads{0};

std::size_t StackSize(int wish) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::size_t least = std::max({LeastStack, static_cast<std::size_t>(std::max(wish, 0)),
                                      static_cast<std::size_t>(PTHREAD_STACK_MIN)});
  return (least + page - 1) / page * page;
}

}  // namespace

int LostThreads() noexcept { return s_lost_threads; }

struct Thread::State {
  std::string name;
  std::string called;  ///< what an exception's line begins with
  std::size_t stack = 0;
  std::function<void()> body;
  std::atomic<bool> running{false};
  sync::Mutex mutex;                       ///< held while the thread is joined
  bool started GUARDED_BY(mutex) = false;  ///< there is a thread to be joined
  pthread_t thread GUARDED_BY(mutex) = {};

  void Run();
  void JoinLocked() REQUIRES(mutex);
};

void Thread::State::Run() {
  Outlet::NeverWaitHere();  // packets are delivered here
  pthread_setname_np(pthread_self(), name.c_str());
  const bool returned = Guarded(called, false, [this] {
    body();
    return true;
  });
  if (!returned) ++s_lost_threads;
  body = nullptr;  // what it holds must not outlive the run
  running.store(false, std::memory_order_release);
}

void Thread::State::JoinLocked() {
  if (!started) return;
  pthread_join(thread, nullptr);
  started = false;
}

// Priority and policy are left alone: the device's scheduling classes mean nothing here, real-time
// ones need privileges, and a nice value would only make the sending thread lose to others.
Thread::Thread(const char* name, int /*priority*/, int /*policy*/, int stackSize)
    : _state(std::make_unique<State>()) {
  _state->name = std::string(name ? name : "").substr(0, NameLimit);
  _state->called = std::string("thread ") + (name ? name : "");
  _state->stack = StackSize(stackSize);
}

Thread::~Thread() { Join(); }

bool Thread::Once(std::function<void()> body) {
  State& state = *_state;
  if (!body || state.running.load(std::memory_order_acquire)) return false;
  const sync::Lock lock(state.mutex);
  state.JoinLocked();  // an earlier run, which has ended
  state.body = std::move(body);
  state.running.store(true, std::memory_order_release);
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) == 0) {
    pthread_attr_setstacksize(&attributes, state.stack);
    const auto entry = [](void* argument) -> void* {
      static_cast<State*>(argument)->Run();
      return nullptr;
    };
    state.started = pthread_create(&state.thread, &attributes, entry, &state) == 0;
    pthread_attr_destroy(&attributes);
  }
  if (!state.started) {
    state.running.store(false, std::memory_order_release);
    state.body = nullptr;
  }
  return state.started;
}

bool Thread::Join() {
  const sync::Lock lock(_state->mutex);
  if (_state->started && pthread_equal(_state->thread, pthread_self())) return false;
  _state->JoinLocked();
  return true;
}

}  // namespace nimbo::base
