#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include <fuzzer/FuzzedDataProvider.h>

/// What all fuzzers share. An input is run in one process behind many others, so a fuzzer leaves no
/// trace of it behind.
namespace nimbo::fuzz {

/// One input; each fuzzer has its own.
void Run(FuzzedDataProvider in);

/// Ends the run when a property does not hold; the input is then kept.
inline void Require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", property);
  std::abort();
}

/// Whether a value can stand in a text.
inline bool BracesMatch(const std::string& value) {
  int depth = 0;
  for (const char c : value) {
    depth += c == '{' ? 1 : c == '}' ? -1 : 0;
    if (depth < 0) return false;
  }
  return depth == 0;
}

}  // namespace nimbo::fuzz
