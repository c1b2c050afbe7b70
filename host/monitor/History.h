#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/publication/ClientFigures.h"

namespace nimbo::monitor {

using Time = std::chrono::system_clock::time_point;

/// Samples and events share one row of numbers, so that a reader can ask for what is new.
struct Sample {
  std::uint64_t number;
  Time time;
  std::vector<publication::ClientFigures> clients;
};

struct Event {
  std::uint64_t number;
  Time time;
  std::size_t client;
  std::string message;
};

/// What a page that is opened later can still show. The counts of messages are never forgotten.
class History {
 public:
  static constexpr std::size_t MaxSamples = 600;  ///< ten minutes, at one a second
  static constexpr std::size_t MaxEvents = 500;

  History(std::vector<std::string> clients, Time start)
      : _clients(std::move(clients)), _start(start), _latest(_clients.size()) {}

  /// Takes the figures of all clients, in the order of their addresses.
  void Add(Time time, std::vector<publication::ClientFigures> figures);
  void Tell(Time time, std::size_t client, const std::string& message, const std::string& told);

  const std::vector<std::string>& Clients() const noexcept { return _clients; }
  Time Start() const noexcept { return _start; }
  const std::deque<Sample>& Samples() const noexcept { return _samples; }
  const std::deque<Event>& Events() const noexcept { return _events; }
  /// The newest figures of each client; zeros before the first sample.
  const std::vector<publication::ClientFigures>& Latest() const noexcept { return _latest; }
  /// How often each client told each message.
  const std::map<std::pair<std::size_t, std::string>, std::uint64_t>& Messages() const noexcept {
    return _messages;
  }
  /// The number that the next sample or event gets.
  std::uint64_t Next() const noexcept { return _next; }

 private:
  std::vector<std::string> _clients;
  Time _start;
  std::vector<publication::ClientFigures> _latest;
  std::deque<Sample> _samples;
  std::deque<Event> _events;
  std::map<std::pair<std::size_t, std::string>, std::uint64_t> _messages;
  std::uint64_t _next = 0;
};

}  // namespace nimbo::monitor
