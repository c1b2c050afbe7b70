#include "host/monitor/Text.h"

#include <array>
#include <cstdio>

#include "host/text/Json.h"

namespace nimbo::monitor {

namespace {

using cli::ClientFigures;
using cli::JsonArray;
using cli::JsonBool;
using cli::JsonObject;
using cli::JsonText;
using cli::JsonTexts;

std::string Number(std::uint64_t value) { return std::to_string(value); }

std::string Seconds(Time time) {
  const std::chrono::duration<double> sinceEpoch = time.time_since_epoch();
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.3f", sinceEpoch.count());
  return text.data();
}

std::string ClientJson(const ClientFigures& client) {
  return JsonObject({{"connected", JsonBool(client.connected)},
                     {"video", Number(client.videoPackets)},
                     {"audio", Number(client.audioPackets)},
                     {"bytes", Number(client.bytes)},
                     {"quality", std::to_string(client.quality)},
                     {"reconnections", Number(client.reconnections)}});
}

std::string SampleJson(const Sample& sample) {
  std::vector<std::string> clients;
  clients.reserve(sample.clients.size());
  for (const ClientFigures& client : sample.clients) clients.push_back(ClientJson(client));
  return JsonObject({{"time", Seconds(sample.time)}, {"clients", JsonArray(clients)}});
}

std::string EventJson(const Event& event) {
  return JsonObject({{"time", Seconds(event.time)},
                     {"client", Number(event.client)},
                     {"message", JsonText(event.message)}});
}

template <class Entries, class Text>
std::string NewJson(const Entries& entries, std::uint64_t since, Text text) {
  std::vector<std::string> found;
  for (const auto& entry : entries) {
    if (entry.number >= since) found.push_back(text(entry));
  }
  return JsonArray(found);
}

/// One figure of every client.
struct Metric {
  const char* name;
  const char* type;
  const char* help;
  std::string (*value)(const ClientFigures&);
};

constexpr Metric Metrics[] = {
    {"nimbo_publish_connected", "gauge", "1 while the client is connected to its server.",
     [](const ClientFigures& c) { return Number(c.connected ? 1 : 0); }},
    {"nimbo_publish_quality", "gauge", "Quality of the connection as the client tells it.",
     [](const ClientFigures& c) { return std::to_string(c.quality); }},
    {"nimbo_publish_video_packets_total", "counter", "Video packets delivered to the client.",
     [](const ClientFigures& c) { return Number(c.videoPackets); }},
    {"nimbo_publish_audio_packets_total", "counter", "Audio packets delivered to the client.",
     [](const ClientFigures& c) { return Number(c.audioPackets); }},
    {"nimbo_publish_bytes_total", "counter", "Bytes of the packets delivered to the client.",
     [](const ClientFigures& c) { return Number(c.bytes); }},
    {"nimbo_publish_refused_packets_total", "counter", "Packets that the client could not send.",
     [](const ClientFigures& c) { return Number(c.refused); }},
    {"nimbo_publish_gaps_total", "counter", "Packets that did not follow the one before.",
     [](const ClientFigures& c) { return Number(c.gaps); }},
    {"nimbo_publish_reconnections_total", "counter", "Lost connections that were made again.",
     [](const ClientFigures& c) { return Number(c.reconnections); }},
};

std::string Head(const char* name, const char* type, const char* help) {
  return std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

std::string LabelText(const std::string& value) {
  std::string text;
  for (const char character : cli::Utf8(value)) {
    if (character == '\\' || character == '"') text += '\\';
    text += character == '\n' ? "\\n" : std::string(1, character);
  }
  return "\"" + text + "\"";
}

/// What tells a client from the others; two may publish to addresses that look the same.
std::string ClientLabels(const History& history, std::size_t client) {
  return "client=\"" + Number(client) + "\",url=" + LabelText(history.Clients().at(client));
}

}  // namespace

std::string StatusJson(const History& history, std::uint64_t since, const std::string& picture) {
  return JsonObject({{"start", Seconds(history.Start())},
                     {"next", Number(history.Next())},
                     {"picture", JsonText(picture)},
                     {"clients", JsonTexts(history.Clients())},
                     {"samples", NewJson(history.Samples(), since, SampleJson)},
                     {"events", NewJson(history.Events(), since, EventJson)}});
}

std::string MetricsText(const History& history) {
  std::string text;
  for (const Metric& metric : Metrics) {
    text += Head(metric.name, metric.type, metric.help);
    for (std::size_t i = 0; i < history.Latest().size(); ++i) {
      text += std::string(metric.name) + "{" + ClientLabels(history, i) + "} " +
              metric.value(history.Latest()[i]) + "\n";
    }
  }
  constexpr char Messages[] = "nimbo_publish_messages_total";
  text += Head(Messages, "counter", "Messages that came up from the client.");
  for (const auto& [told, count] : history.Messages()) {
    text += std::string(Messages) + "{" + ClientLabels(history, told.first) +
            ",message=" + LabelText(told.second) + "} " + Number(count) + "\n";
  }
  constexpr char Start[] = "nimbo_publish_start_time_seconds";
  return text + Head(Start, "gauge", "When the publication began, in seconds since 1970.") + Start +
         " " + Seconds(history.Start()) + "\n";
}

}  // namespace nimbo::monitor
