#include "host/monitor/Text.h"

#include <fmt/format.h>

#include "host/text/Json.h"

namespace nimbo::monitor {

namespace {

using publication::ClientFigures;
using text::Json;

double Seconds(Time time) {
  const std::chrono::duration<double> sinceEpoch = time.time_since_epoch();
  return sinceEpoch.count();
}

Json TimeJson(Time time) { return text::Milliseconds(Seconds(time)); }

Json ToJson(const ClientFigures& client) {
  return {{"connected", client.connected}, {"video", client.videoPackets},
          {"audio", client.audioPackets},  {"bytes", client.bytes},
          {"quality", client.quality},     {"reconnections", client.reconnections},
          {"lag", client.link.lag},        {"acknowledged", client.link.acknowledged}};
}

Json ToJson(const Sample& sample) {
  Json clients = Json::array();
  for (const ClientFigures& client : sample.clients) clients.push_back(ToJson(client));
  return {{"time", TimeJson(sample.time)}, {"clients", std::move(clients)}};
}

Json ToJson(const Event& event) {
  return {{"time", TimeJson(event.time)}, {"client", event.client}, {"message", event.message}};
}

template <class Entries>
Json NewJson(const Entries& entries, std::uint64_t since) {
  Json found = Json::array();
  for (const auto& entry : entries) {
    if (entry.number >= since) found.push_back(ToJson(entry));
  }
  return found;
}

/// One figure of every client.
struct Metric {
  const char* name;
  const char* type;
  const char* help;
  std::string (*value)(const ClientFigures&);
  const char* label = "";  ///< beside those of the client
};
constexpr char Dropped[] = "nimbo_publish_dropped_packets_total";
constexpr char DroppedHelp[] = "Packets that the client has not got or could not send, by cause.";

constexpr Metric Metrics[] = {
    {"nimbo_publish_connected", "gauge", "1 while the client is connected to its server.",
     [](const ClientFigures& c) { return std::to_string(int{c.connected}); }},
    {"nimbo_publish_quality", "gauge", "Quality of the connection as the client tells it.",
     [](const ClientFigures& c) { return std::to_string(c.quality); }},
    {"nimbo_publish_video_packets_total", "counter", "Video packets delivered to the client.",
     [](const ClientFigures& c) { return std::to_string(c.videoPackets); }},
    {"nimbo_publish_audio_packets_total", "counter", "Audio packets delivered to the client.",
     [](const ClientFigures& c) { return std::to_string(c.audioPackets); }},
    {"nimbo_publish_bytes_total", "counter", "Bytes of the packets delivered to the client.",
     [](const ClientFigures& c) { return std::to_string(c.bytes); }},
    {Dropped, "counter", DroppedHelp,
     [](const ClientFigures& c) { return std::to_string(c.dropped.gap); }, ",cause=\"gap\""},
    {Dropped, "counter", DroppedHelp,
     [](const ClientFigures& c) { return std::to_string(c.dropped.lag); }, ",cause=\"lag\""},
    {Dropped, "counter", DroppedHelp,
     [](const ClientFigures& c) { return std::to_string(c.dropped.refused); },
     ",cause=\"refused\""},
    {Dropped, "counter", DroppedHelp,
     [](const ClientFigures& c) { return std::to_string(c.dropped.ended); }, ",cause=\"ended\""},
    {"nimbo_publish_lag_seconds", "gauge",
     "How late what is sent now is, or what waits to be sent.",
     [](const ClientFigures& c) { return fmt::format("{:.3f}", c.link.lag / 1000); }},
    {"nimbo_publish_round_trip_seconds", "gauge", "Round trip to the server, as TCP has it.",
     [](const ClientFigures& c) { return fmt::format("{:.6f}", c.link.roundTrip / 1000); }},
    {"nimbo_publish_acknowledged_bytes_total", "counter", "Bytes that the server has acknowledged.",
     [](const ClientFigures& c) { return std::to_string(c.link.acknowledged); }},
    {"nimbo_publish_unsent_bytes", "gauge", "Bytes written that the server has not acknowledged.",
     [](const ClientFigures& c) { return std::to_string(c.link.unsent); }},
    {"nimbo_publish_retransmits_total", "counter", "Segments that TCP has sent again.",
     [](const ClientFigures& c) { return std::to_string(c.link.retransmits); }},
    {"nimbo_publish_failed_attempts_total", "counter", "Attempts to connect that have failed.",
     [](const ClientFigures& c) { return std::to_string(c.attempts); }},
    {"nimbo_publish_gaps_total", "counter", "Packets that did not follow the one before.",
     [](const ClientFigures& c) { return std::to_string(c.gaps); }},
    {"nimbo_publish_reconnections_total", "counter", "Lost connections that were made again.",
     [](const ClientFigures& c) { return std::to_string(c.reconnections); }},
};

std::string Head(const char* name, const char* type, const char* help) {
  return std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

std::string LabelText(const std::string& value) {
  std::string label;
  for (const char character : text::Utf8(value)) {
    if (character == '\\' || character == '"') label += '\\';
    label += character == '\n' ? "\\n" : std::string(1, character);
  }
  return "\"" + label + "\"";
}

/// What tells a client from the others; two may publish to addresses that look the same.
std::string ClientLabels(const History& history, std::size_t client) {
  return "client=\"" + std::to_string(client) + "\",url=" + LabelText(history.Clients().at(client));
}

}  // namespace

std::string StatusJson(const History& history, std::uint64_t since, const std::string& picture) {
  return text::Dump({{"start", TimeJson(history.Start())},
                     {"next", history.Next()},
                     {"picture", picture},
                     {"clients", history.Clients()},
                     {"samples", NewJson(history.Samples(), since)},
                     {"events", NewJson(history.Events(), since)}});
}

std::string MetricsText(const History& history) {
  std::string text;
  const char* before = nullptr;
  for (const Metric& metric : Metrics) {
    if (metric.name != before) text += Head(metric.name, metric.type, metric.help);
    before = metric.name;
    for (std::size_t i = 0; i < history.Latest().size(); ++i) {
      text += std::string(metric.name) + "{" + ClientLabels(history, i) + metric.label + "} " +
              metric.value(history.Latest()[i]) + "\n";
    }
  }
  constexpr char Messages[] = "nimbo_publish_messages_total";
  text += Head(Messages, "counter", "Messages that came up from the client.");
  for (const auto& [told, count] : history.Messages()) {
    text += std::string(Messages) + "{" + ClientLabels(history, told.first) +
            ",message=" + LabelText(told.second) + "} " + std::to_string(count) + "\n";
  }
  constexpr char Start[] = "nimbo_publish_start_time_seconds";
  return text + Head(Start, "gauge", "When the publication began, in seconds since 1970.") + Start +
         fmt::format(" {:.3f}\n", Seconds(history.Start()));
}

}  // namespace nimbo::monitor
