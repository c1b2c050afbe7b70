#include "host/cli/commands/StatusText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "host/publication/RateMeter.h"
#include "host/publication/Url.h"
#include "host/text/Json.h"

namespace nimbo::cli {

namespace {

using publication::ClientFigures;
using text::Json;

constexpr double MillisecondsPerSecond = 1000;

Json ClientJson(const Progress& progress, std::size_t index) {
  const ClientFigures& client = progress.clients[index];
  Json messages = Json::array();
  for (const auto& [from, message] : progress.events) {
    if (from == index) messages.push_back(message);
  }
  return {{"url", publication::ShownUrl(progress.urls[index])},
          {"connected", client.connected},
          {"video", client.videoPackets},
          {"audio", client.audioPackets},
          {"bytes", client.bytes},
          {"quality", client.quality},
          {"reconnections", client.reconnections},
          {"attempts", client.attempts},
          {"gaps", client.gaps},
          {"lag", std::llround(client.link.lag)},
          {"round_trip", client.link.roundTrip},
          {"set_up", std::llround(client.setUp)},
          {"acknowledged", client.link.acknowledged},
          {"unsent", client.link.unsent},
          {"retransmits", client.link.retransmits},
          {"dropped",
           {{"gap", client.dropped.gap},
            {"lag", client.dropped.lag},
            {"refused", client.dropped.refused},
            {"ended", client.dropped.ended}}},
          {"messages", std::move(messages)}};
}

}  // namespace

namespace {

/// A client in the status line: the whole of it, or what there is room for.
enum class Detail { Whole, Short, Name };

std::string ClientSentence(const Progress& progress, std::size_t index, Detail detail) {
  const ClientFigures& client = progress.clients[index];
  std::string name = publication::ShownUrl(progress.urls[index]);
  const auto host = name.find("://") + 3;
  const auto path = std::min(name.find('/', host), name.size());
  // The application is what clients rarely differ in.
  name = name.substr(host, path - host) + name.substr(std::min(name.rfind('/'), name.size()));
  const char* state = client.connected ? "connected" : "not connected";
  const double lag = client.link.lag / MillisecondsPerSecond;
  if (detail == Detail::Name) return fmt::format("  {}{}", client.connected ? "" : "not ", name);
  if (detail == Detail::Short) return fmt::format("  [{}: {} lag={:.1f}s]", name, state, lag);
  return fmt::format("  [{}: video {} audio {} {} lag={:.1f}s quality={} reconnections={}]", name,
                     client.videoPackets, client.audioPackets, state, lag, client.quality,
                     client.reconnections);
}

Json ClientsJson(const Progress& progress) {
  Json clients = Json::array();
  for (std::size_t i = 0; i < progress.clients.size(); ++i)
    clients.push_back(ClientJson(progress, i));
  return clients;
}

}  // namespace

std::string StatusSentence(const Progress& progress, std::size_t columns) {
  std::string text;
  for (const Detail detail : {Detail::Whole, Detail::Short, Detail::Name}) {
    text = fmt::format("{:7.1f} s  sent {}, source {}{}", progress.seconds,
                       publication::BitRateText(progress.bitsPerSecond),
                       publication::BitRateText(progress.sourceBitsPerSecond),
                       progress.sourceAway ? " (away)" : "");
    for (std::size_t i = 0; i < progress.clients.size(); ++i) {
      text += ClientSentence(progress, i, detail);
    }
    if (text.size() <= columns) break;
  }
  return text;
}

std::string StatusJson(const Progress& progress) {
  return text::Dump({{"time", text::Milliseconds(progress.seconds)},
                     {"bit_rate", std::llround(progress.bitsPerSecond)},
                     {"source_bit_rate", std::llround(progress.sourceBitsPerSecond)},
                     {"source_away", progress.sourceAway},
                     {"clients", ClientsJson(progress)}});
}

std::string EndJson(const Progress& progress, const std::string& reason, const Status& status) {
  return text::Dump({{"time", text::Milliseconds(progress.seconds)},
                     {"reason", reason},
                     {"exit_code", status ? 0 : 1},
                     {"why", status.Why()},
                     {"clients", ClientsJson(progress)}});
}

}  // namespace nimbo::cli
