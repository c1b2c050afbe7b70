#include "host/elements/Properties.h"

#include <cerrno>
#include <cstdlib>

#include "host/stream/Console.h"

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

}  // namespace nimbo::stream
