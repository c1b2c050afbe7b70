#include "host/cli/commands/StatusText.h"

#include <array>
#include <cstdio>

#include "host/cli/terminal/StatusLine.h"
#include "host/publication/Url.h"
#include "host/text/Json.h"

namespace nimbo::cli {

namespace {

template <class... Values>
std::string Format(const char* format, Values... values) {
  std::array<char, 160> text{};
  std::snprintf(text.data(), text.size(), format, values...);
  return text.data();
}

std::string Number(std::uint64_t value) { return std::to_string(value); }

std::string ClientJson(const Status& status, std::size_t index) {
  const ClientFigures& client = status.clients[index];
  std::vector<std::string> messages;
  for (const auto& [from, message] : status.events) {
    if (from == index) messages.push_back(message);
  }
  return JsonObject({{"url", JsonText(ShownUrl(status.urls[index]))},
                     {"connected", JsonBool(client.connected)},
                     {"video", Number(client.videoPackets)},
                     {"audio", Number(client.audioPackets)},
                     {"bytes", Number(client.bytes)},
                     {"quality", std::to_string(client.quality)},
                     {"reconnections", Number(client.reconnections)},
                     {"refused", Number(client.refused)},
                     {"gaps", Number(client.gaps)},
                     {"messages", JsonTexts(messages)}});
}

}  // namespace

std::string StatusSentence(const Status& status) {
  std::string text =
      Format("%7.1f s  %s", status.seconds, BitRateText(status.bitsPerSecond).c_str());
  for (const ClientFigures& client : status.clients) {
    text += Format("  [video %llu audio %llu %s quality=%d reconnections=%llu]",
                   static_cast<unsigned long long>(client.videoPackets),
                   static_cast<unsigned long long>(client.audioPackets),
                   client.connected ? "connected" : "not connected", client.quality,
                   static_cast<unsigned long long>(client.reconnections));
  }
  return text;
}

std::string StatusJson(const Status& status) {
  std::vector<std::string> clients;
  for (std::size_t i = 0; i < status.clients.size(); ++i) clients.push_back(ClientJson(status, i));
  return JsonObject({{"time", Format("%.3f", status.seconds)},
                     {"bit_rate", Format("%.0f", status.bitsPerSecond)},
                     {"clients", JsonArray(clients)}});
}

}  // namespace nimbo::cli
