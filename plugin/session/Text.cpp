#include "plugin/session/Text.h"

#include <system_error>

namespace nimbo::plugin {

namespace {

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

}  // namespace

std::string Printable(std::string_view words) {
  constexpr std::size_t Longest = 200;
  constexpr unsigned char Space = 0x20;
  constexpr unsigned char Delete = 0x7F;
  constexpr unsigned char LastC1 = 0x9F;  // behind 0xC2 in UTF-8: terminals obey these, too
  const bool cut = words.size() > Longest;
  std::string text(words.substr(0, Longest));
  unsigned char before = 0;
  for (char& c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool control = byte < Space || byte == Delete;
    if (control || (before == 0xC2 && byte <= LastC1)) c = ' ';
    before = byte;
  }
  return cut ? text + "..." : text;
}

std::string HideSecrets(std::string text, const std::string& url, const std::string& name) {
  // Options stand behind a blank; passwords among them are hidden whole, however short.
  const std::size_t options = url.find(' ');
  if (options != std::string::npos) {
    const std::string tail = url.substr(options);
    const std::size_t at = text.find(tail);
    if (at != std::string::npos) text.replace(at, tail.size(), " ...");
  }
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
  // A server may repeat a token alone.
  for (std::size_t at = url.find('='); at != std::string::npos; at = url.find('=', at + 1)) {
    Shorten(text, url.substr(at + 1, url.find_first_of("&? ", at) - at - 1));
  }
  return text;
}

std::string Seconds(std::chrono::milliseconds time) {
  constexpr int Tenths = 100;
  const long long tenths = time.count() / Tenths;
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
}

std::string ErrorText(int error) { return std::generic_category().message(error); }

}  // namespace nimbo::plugin
