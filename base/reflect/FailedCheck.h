#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "nimbo/base/class.h"
#include "nimbo/base/ostream.h"

namespace nimbo::base {

inline void IClass::FailedCheck(const char* file, int line, const char* function,
                                const std::string& condition) {
  const auto skip =
      std::min(std::strlen(file), static_cast<std::size_t>(std::max(__root_path_offset, 0)));
  std::string text;
  ostream_string out(text);
  out << "\033[31m" << file + skip << "/" << line << "/" << function << ":\t" << condition
      << "\n\033[0m";
  cout << text;  // whole, so that lines of two threads never mix
}

}  // namespace nimbo::base
