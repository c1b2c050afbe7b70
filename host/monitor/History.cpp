#include "host/monitor/History.h"

namespace nimbo::monitor {

void History::Add(Time time, std::vector<publication::ClientFigures> figures) {
  figures.resize(_clients.size());
  _latest = figures;
  _samples.push_back({_next++, time, std::move(figures)});
  if (_samples.size() > MaxSamples) _samples.pop_front();
}

void History::Tell(Time time, std::size_t client, const std::string& message,
                   const std::string& told) {
  ++_messages[{client, message}];
  if (told.empty()) return;
  _events.push_back({_next++, time, client, told});
  if (_events.size() > MaxEvents) _events.pop_front();
}

}  // namespace nimbo::monitor
