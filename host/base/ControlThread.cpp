#include "host/base/ControlThread.h"

#include <atomic>
#include <cassert>
#include <thread>

namespace nimbo::base {

namespace {

std::atomic<std::thread::id> s_control{std::this_thread::get_id()};

}  // namespace

void ControlThread::Claim() noexcept { s_control = std::this_thread::get_id(); }

bool ControlThread::Here() noexcept { return s_control.load() == std::this_thread::get_id(); }

void AssertControlThread() noexcept { assert(ControlThread::Here()); }

}  // namespace nimbo::base
