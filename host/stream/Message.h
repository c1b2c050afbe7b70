#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "nimbo/base/attr_set.h"

namespace nimbo::stream {

/// A message that an element sent up.
struct Message {
  std::string path;     ///< the sender, as APPLICATION/ELEMENT
  std::string element;  ///< the sender's name
  std::string name;     ///< what happened, such as "rtmp_connected"
  std::string text;
  base::AttrSet attrs;
};

/// Who is told about messages. [control]
class NIMBO_API MessageListeners {
 public:
  using Listener = std::function<void(const Message&)>;

  /// Those who are told about the messages of every element, after the listeners of its pipeline
  /// and its application.
  static MessageListeners& Global();

  /// Returns a number for Remove.
  int Add(Listener listener);
  void Remove(int number);
  /// Tells all of them, in the order of their addition. A listener may add and remove listeners.
  void Tell(const Message& message) const;

 private:
  std::vector<std::pair<int, Listener>> _listeners;
  int _last = 0;
};

}  // namespace nimbo::stream
