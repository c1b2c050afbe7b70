#include "host/cli/commands/StatusText.h"

#include <fmt/format.h>

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

std::string StatusSentence(const Progress& progress) {
  std::string text = fmt::format("{:7.1f} s  {} of {}", progress.seconds,
                                 publication::BitRateText(progress.bitsPerSecond),
                                 publication::BitRateText(progress.sourceBitsPerSecond));
  for (const ClientFigures& client : progress.clients) {
    text += fmt::format(
        "  [video {} audio {} {} lag={:.1f}s quality={} reconnections={}]", client.videoPackets,
        client.audioPackets, client.connected ? "connected" : "not connected",
        client.link.lag / MillisecondsPerSecond, client.quality, client.reconnections);
  }
  return text;
}

std::string StatusJson(const Progress& progress) {
  Json clients = Json::array();
  for (std::size_t i = 0; i < progress.clients.size(); ++i)
    clients.push_back(ClientJson(progress, i));
  return text::Dump({{"time", text::Milliseconds(progress.seconds)},
                     {"bit_rate", std::llround(progress.bitsPerSecond)},
                     {"source_bit_rate", std::llround(progress.sourceBitsPerSecond)},
                     {"clients", std::move(clients)}});
}

}  // namespace nimbo::cli
