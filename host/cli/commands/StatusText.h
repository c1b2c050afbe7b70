#pragma once

#include <string>
#include <utility>
#include <vector>

#include "common/Status.h"
#include "host/publication/ClientFigures.h"

namespace nimbo::cli {

/// Something that a client told: its number and the message.
using Event = std::pair<std::size_t, std::string>;

/// A publication at one moment.
struct Progress {
  double seconds;
  double bitsPerSecond;        ///< that the servers have acknowledged
  double sourceBitsPerSecond;  ///< that the sources give
  bool sourceAway;             ///< something stands in for a source
  const std::vector<std::string>& urls;
  const std::vector<publication::ClientFigures>& clients;
  const std::vector<Event>& events;  ///< since the last status
};

/// One line for people: time, bit rates, and how each client is doing, as much of it as fits into
/// `columns`; at least who is connected.
std::string StatusSentence(const Progress& progress, std::size_t columns);
/// One JSON object (RFC 8259) without line breaks: "time" (s), "bit_rate" (bit/s that the servers
/// have acknowledged), "source_bit_rate" (that the sources give), "source_away" (a slate stands in
/// for one), and for each client "url", "connected", "video", "audio" (packets), "bytes",
/// "quality", "reconnections", "attempts" (to connect, that have failed), "gaps", "dropped"
/// (packets by cause: "gap", "lag", "refused", "ended"), "lag", "round_trip", "set_up" (ms),
/// "acknowledged", "unsent" (bytes), "retransmits" (segments) and "messages".
std::string StatusJson(const Progress& progress);
/// The last object: "reason" ("end_of_input", "duration", "signal", "input_lost", "failure" or
/// "not_started"), "exit_code", "why" it is not 0 (may be empty), "time", and "clients" as above.
std::string EndJson(const Progress& progress, const std::string& reason, const Status& status);

}  // namespace nimbo::cli
