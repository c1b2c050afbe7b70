#include "host/elements/av/RecordingPath.h"

#include <unistd.h>

#include <array>
#include <climits>
#include <ctime>

namespace nimbo::stream {

std::string NumberedPath(const std::string& path, int number) {
  if (number == 1) return path;
  const std::size_t name = path.find_last_of('/') + 1;  // 0 where there is no folder
  const std::size_t dot = path.find_last_of('.');
  const std::size_t end = dot == std::string::npos || dot <= name ? path.size() : dot;
  return path.substr(0, end) + "-" + std::to_string(number) + path.substr(end);
}

std::string FreePath(const std::string& pattern) {
  std::array<char, PATH_MAX> dated = {};
  const std::time_t now = std::time(nullptr);
  std::tm local = {};
  localtime_r(&now, &local);
  const std::size_t size = std::strftime(dated.data(), dated.size(), pattern.c_str(), &local);
  const std::string path = size > 0 ? dated.data() : pattern;
  for (int number = 1;; ++number) {
    std::string free = NumberedPath(path, number);
    if (access(free.c_str(), F_OK) != 0) return free;
  }
}

}  // namespace nimbo::stream
