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
          {"refused", client.refused},
          {"gaps", client.gaps},
          {"messages", std::move(messages)}};
}

}  // namespace

std::string StatusSentence(const Progress& progress) {
  std::string text = fmt::format("{:7.1f} s  {}", progress.seconds,
                                 publication::BitRateText(progress.bitsPerSecond));
  for (const ClientFigures& client : progress.clients) {
    text += fmt::format("  [video {} audio {} {} quality={} reconnections={}]", client.videoPackets,
                        client.audioPackets, client.connected ? "connected" : "not connected",
                        client.quality, client.reconnections);
  }
  return text;
}

std::string StatusJson(const Progress& progress) {
  Json clients = Json::array();
  for (std::size_t i = 0; i < progress.clients.size(); ++i)
    clients.push_back(ClientJson(progress, i));
  return text::Dump({{"time", text::Milliseconds(progress.seconds)},
                     {"bit_rate", std::llround(progress.bitsPerSecond)},
                     {"clients", std::move(clients)}});
}

}  // namespace nimbo::cli
