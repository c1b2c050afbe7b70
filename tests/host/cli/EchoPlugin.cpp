#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

#include "host/stream/ControlQueue.h"
#include "host/stream/Message.h"
#include "nimbo/base/command.h"
#include "nimbo/base/ostream.h"
#include "nimbo/base/thread.h"

namespace {

using nimbo::base::AttrSet;
using nimbo::base::cout;

const auto Pause = std::chrono::milliseconds(200);

const bool registered = [] {
  nimbo::base::omfCmdRegister("echo", [](AttrSet& arguments) {
    cout << "echo: " + arguments.ToString(false) + "\n";
    return arguments.Get("fail") == nullptr;
  });
  // One of its threads fails a moment after it was loaded, where that is asked for.
  static nimbo::base::Thread failing("failing", 0, 0, 0);
  if (std::getenv("ECHO_FAILS")) {
    failing.Once([] {
      std::this_thread::sleep_for(Pause);
      throw std::runtime_error("no good");
    });
  }
  // Hears what an encoder of a device's own would.
  nimbo::stream::MessageListeners::Global().Add([](const nimbo::stream::Message& message) {
    if (message.name == "bit_rate") cout << "bit_rate: " + message.text + "\n";
  });
  // Prints from a thread of its own and from the control queue, a moment later.
  nimbo::base::omfCmdRegister("later", [](AttrSet&) {
    std::thread([] {
      std::this_thread::sleep_for(Pause);
      cout << "from a thread\n";
      nimbo::stream::ControlQueue::Global().Post([] { cout << "from the queue\n"; });
    }).detach();
    return true;
  });
  return true;
}();

std::string Shown(const char* text) { return text ? "[" + std::string(text) + "]" : "null"; }

}  // namespace

extern "C" NIMBO_API int fwEcho(const char* a, const char* b, const char* c) {
  cout << Shown(a) + Shown(b) + Shown(c) + "\n";
  return 7;
}

extern "C" NIMBO_API int fwThrow(const char*, const char*, const char*) {
  throw std::runtime_error("no good");
}
