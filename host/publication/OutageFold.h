#pragma once

#include <chrono>
#include <string>

namespace nimbo::publication {

/// Of the messages of one client what is worth telling: how an outage begins, a count now and then
/// while it lasts, and how it ends. A server that is away for a night fills no list.
class OutageFold {
 public:
  static constexpr std::chrono::minutes Period{1};

  /// Takes a message at a time of a clock that does not go back. Returns what is to be told of it,
  /// which begins with the message; empty: nothing.
  std::string Tell(const std::string& message, std::chrono::nanoseconds now) {
    const bool failed = message == "rtmp_reconnect_fail" || message == "rtmp_disconnected";
    const bool made = message == "rtmp_reconnect_success" || message == "rtmp_connected";
    if (_failures == 0) {
      if (failed) Begin(now);
      return message;
    }
    if (made) {
      std::string text = message + Sum(now);
      _failures = 0;
      return text;
    }
    if (!failed) return message == "rtmp_send_data_fail" ? "" : message;
    ++_failures;
    if (now - _told < Period) return {};
    _told = now;
    return message + Sum(now);
  }

 private:
  void Begin(std::chrono::nanoseconds now) {
    _failures = 1;
    _since = now;
    _told = now;
  }
  std::string Sum(std::chrono::nanoseconds now) const {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - _since).count();
    return " (failed " + (_failures == 1 ? "once" : std::to_string(_failures) + " times") + " in " +
           std::to_string(seconds) + " s)";
  }

  unsigned int _failures = 0;  ///< of this outage; 0: there is none
  std::chrono::nanoseconds _since{};
  std::chrono::nanoseconds _told{};
};

}  // namespace nimbo::publication
