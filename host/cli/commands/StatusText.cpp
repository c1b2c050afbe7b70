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

Json ClientJson(const Status& status, std::size_t index) {
  const ClientFigures& client = status.clients[index];
  Json messages = Json::array();
  for (const auto& [from, message] : status.events) {
    if (from == index) messages.push_back(message);
  }
  return {{"url", publication::ShownUrl(status.urls[index])},
          {"connected", client.connected},
          {"video", client.videoPackets},
          {"audio", client.audioPackets},
          {"bytes", client.bytes},
          {"quality", client.quality},
          {"reconnections", client.reconnections},
          {"refused", client.refused},
          {"gaps", client.gaps},
          {"messages", std::move(messages)}};
}

}  // namespace

std::string StatusSentence(const Status& status) {
  std::string text =
      fmt::format("{:7.1f} s  {}", status.seconds, publication::BitRateText(status.bitsPerSecond));
  for (const ClientFigures& client : status.clients) {
    text += fmt::format("  [video {} audio {} {} quality={} reconnections={}]", client.videoPackets,
                        client.audioPackets, client.connected ? "connected" : "not connected",
                        client.quality, client.reconnections);
  }
  return text;
}

std::string StatusJson(const Status& status) {
  Json clients = Json::array();
  for (std::size_t i = 0; i < status.clients.size(); ++i) clients.push_back(ClientJson(status, i));
  return text::Dump({{"time", text::Milliseconds(status.seconds)},
                     {"bit_rate", std::llround(status.bitsPerSecond)},
                     {"clients", std::move(clients)}});
}

}  // namespace nimbo::cli
