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
  double bitsPerSecond;
  const std::vector<std::string>& urls;
  const std::vector<publication::ClientFigures>& clients;
  const std::vector<Event>& events;  ///< since the last status
};

/// One line for people: time, frames, bit rate, and how each client is doing.
std::string StatusSentence(const Progress& progress);
/// One JSON object (RFC 8259) without line breaks: "time" (s), "bit_rate" (bit/s), and for each
/// client "url", "connected", "video", "audio" (packets), "bytes", "quality", "reconnections",
/// "refused", "gaps" and "messages".
std::string StatusJson(const Progress& progress);

}  // namespace nimbo::cli
