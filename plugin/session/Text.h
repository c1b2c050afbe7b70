#pragma once

#include <chrono>
#include <string>
#include <string_view>

/// Words for people: what servers say can be shown, secrets cannot.
namespace nimbo::plugin {

/// What a server said, fit for a terminal: control bytes become spaces, long texts are cut.
std::string Printable(std::string_view words);

/// `text` with the stream name and the token of `url` shortened to their first characters, so that
/// it can be shown. `name` is the stream name as librtmp reads it; may be empty.
std::string HideSecrets(std::string text, const std::string& url, const std::string& name);

/// "6.0 s".
std::string Seconds(std::chrono::milliseconds time);

/// What the system calls an error.
std::string ErrorText(int error);

}  // namespace nimbo::plugin
