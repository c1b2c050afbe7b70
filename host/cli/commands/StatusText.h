#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/publication/ClientFigures.h"

namespace nimbo::cli {

/// Something that a client told: its number and the message.
using Event = std::pair<std::size_t, std::string>;

/// A publication at one moment.
struct Progress {
  double seconds;
  double bitsPerSecond;        ///< that the servers have acknowledged
  double sourceBitsPerSecond;  ///< that the sources give
  const std::vector<std::string>& urls;
  const std::vector<publication::ClientFigures>& clients;
  const std::vector<Event>& events;  ///< since the last status
};

/// One line for people: time, frames, bit rate, and how each client is doing.
std::string StatusSentence(const Progress& progress);
/// One JSON object (RFC 8259) without line breaks: "time" (s), "bit_rate" (bit/s that the servers
/// have acknowledged), "source_bit_rate" (that the sources give), and for each client "url",
/// "connected", "video", "audio" (packets), "bytes", "quality", "reconnections", "attempts" (to
/// connect, that have failed), "gaps", "dropped" (packets by cause: "gap", "lag", "refused",
/// "ended"), "lag", "round_trip", "set_up" (ms), "acknowledged", "unsent" (bytes), "retransmits"
/// (segments) and "messages".
std::string StatusJson(const Progress& progress);

}  // namespace nimbo::cli
