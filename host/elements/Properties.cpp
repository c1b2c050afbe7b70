#include "host/elements/Properties.h"

#include <cerrno>
#include <cstdlib>
#include <sstream>

#include "host/base/Console.h"

namespace nimbo::stream {

bool SetPacketCount(const base::object& element, const char* key, const char* text,
                    std::atomic<int>& value) {
  constexpr long MaxPackets = 65536;
  char* end = nullptr;
  errno = 0;
  const long number = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || errno != 0 || number < 1 || number > MaxPackets) {
    return Refuse("\"", element.Name(), "\": ", key, "=", text, ": a number of packets from 1 to ",
                  MaxPackets, " is needed");
  }
  value = static_cast<int>(number);
  return true;
}

bool SetSeconds(const base::object& element, const char* key, const char* text,
                std::atomic<std::chrono::nanoseconds>& value) {
  constexpr double Longest = 3600;
  char* end = nullptr;
  const double seconds = std::strtod(text, &end);
  if (end == text || *end != '\0' || !(seconds >= 0 && seconds <= Longest)) {
    return Refuse("\"", element.Name(), "\": ", key, "=", text, ": seconds from 0 to ", Longest,
                  " are needed");
  }
  value =
      std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
  return true;
}

std::string SecondsText(std::chrono::nanoseconds value) {
  std::ostringstream text;
  text << std::chrono::duration<double>(value).count();
  return text.str();
}

}  // namespace nimbo::stream
