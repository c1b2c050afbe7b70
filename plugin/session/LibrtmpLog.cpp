#include "plugin/session/LibrtmpLog.h"

#include <cstdio>
#include <cstring>

#include <librtmp/log.h>

namespace nimbo::plugin {

namespace {

thread_local LibrtmpLog* current = nullptr;

/// What librtmp writes in front of the server's own words.
constexpr char StatusMark[] = "onStatus: ";
constexpr char ErrorMark[] = "error description: ";

/// What follows `marker` in `line`; empty when it is not there.
std::string Behind(const std::string& line, const char* marker) {
  const std::size_t at = line.find(marker);
  return at == std::string::npos ? std::string()
                                 : line.substr(at + std::char_traits<char>::length(marker));
}

/// Keeps the first characters of each part of `secret` that stands in `text`.
void Shorten(std::string& text, const std::string& secret) {
  constexpr std::size_t Shown = 4;
  constexpr std::size_t WorthHiding = 8;
  if (secret.size() < WorthHiding) return;
  for (std::size_t at = text.find(secret); at != std::string::npos;
       at = text.find(secret, at + Shown)) {
    text.replace(at + Shown, secret.size() - Shown, "...");
  }
}

/// True for a status of the publish (RTMP 1.0, 7.2.2.6) that is not its start.
bool IsRefusal(const std::string& status) {
  constexpr char Publish[] = "NetStream.Publish.";
  return status.compare(0, sizeof Publish - 1, Publish) == 0 &&
         status != std::string(Publish) + "Start";
}

}  // namespace

LibrtmpLog::LibrtmpLog() : _outer(current) {
  [[maybe_unused]] static const bool installed = [] {
    RTMP_LogSetCallback(&LibrtmpLog::Receive);
    // The level at which librtmp tells what the server answered.
    RTMP_LogSetLevel(RTMP_LOGDEBUG);
    return true;
  }();
  current = this;
}

LibrtmpLog::~LibrtmpLog() { current = _outer; }

void LibrtmpLog::Receive(int level, const char* format, va_list arguments) {
  // Only what is used is formatted: other lines may hold texts without an end.
  if (!current) return;
  if (current->_on_line) current->_on_line();
  const bool told = std::strstr(format, StatusMark) || std::strstr(format, ErrorMark);
  if (!told && level > RTMP_LOGERROR) return;
  char text[512];
  std::vsnprintf(text, sizeof text, format, arguments);
  const std::string line = text;
  if (const std::string status = Behind(line, StatusMark); !status.empty()) {
    current->_answer = "the server answered " + status;
    if (IsRefusal(status) && current->_on_refusal) current->_on_refusal();
  } else if (const std::string words = Behind(line, ErrorMark); !words.empty()) {
    current->_answer = "the server said: " + words;
  } else if (level <= RTMP_LOGERROR) {
    current->_error = line;
  }
}

std::string LibrtmpLog::Reason() const { return _answer.empty() ? _error : _answer; }

std::string HideSecrets(std::string text, const std::string& url, const std::string& name) {
  const auto shortenBoth = [&text](const std::string& secret) {
    Shorten(text, secret);
    Shorten(text, secret.substr(0, secret.find('?')));
  };
  // Everything behind the application: stream name and token, with and without the query.
  const std::size_t scheme = url.find("://");
  const std::size_t app = url.find('/', scheme == std::string::npos ? 0 : scheme + 3);
  const std::size_t rest = app == std::string::npos ? app : url.find('/', app + 1);
  if (rest != std::string::npos) shortenBoth(url.substr(rest + 1));
  shortenBoth(name);
  return text;
}

}  // namespace nimbo::plugin
