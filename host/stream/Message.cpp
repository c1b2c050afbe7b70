#include "host/stream/Message.h"

#include <algorithm>

#include "host/base/Console.h"
#include "host/stream/Shielded.h"

namespace nimbo::stream {

MessageListeners& MessageListeners::Global() {
  static auto& listeners = *new MessageListeners;
  return listeners;
}

int MessageListeners::Add(Listener listener) {
  _listeners.emplace_back(++_last, std::move(listener));
  return _last;
}

void MessageListeners::Remove(int number) {
  _listeners.erase(std::remove_if(_listeners.begin(), _listeners.end(),
                                  [number](const auto& entry) { return entry.first == number; }),
                   _listeners.end());
}

void MessageListeners::Tell(const Message& message) const {
  const auto listeners = _listeners;
  for (const auto& entry : listeners) {
    Shielded("A listener to messages", nullptr, [&] {
      entry.second(message);
      return true;
    });
  }
}

}  // namespace nimbo::stream
