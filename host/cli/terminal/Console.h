#pragma once

#include <string>

namespace nimbo::cli {

/// Writes one line to standard error, red on a terminal, and returns false, so that whoever refuses
/// something can return it. [any]
bool Complain(const std::string& text);

/// Writes one line to standard output. [any]
void Say(const std::string& text);

}  // namespace nimbo::cli
