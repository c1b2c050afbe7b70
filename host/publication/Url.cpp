#include "host/publication/Url.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "host/base/Nearest.h"
#include "host/text/Text.h"
#include "nimbo/base/names.h"

namespace nimbo::publication {

namespace {

constexpr char Expected[] = "rtmp://HOST[:PORT]/APPLICATION/STREAM is expected";
constexpr char Separator[] = "://";

/// What librtmp can dial.
const std::vector<std::string> Schemes = {"rtmp", "rtmps", "rtmpt", "rtmpe", "rtmpte", "rtmpts"};

/// An address in its pieces, each as it stands there.
struct Pieces {
  std::string scheme;    ///< "rtmp://"; empty: there is none
  std::string user;      ///< with its '@'
  std::string host;      ///< an IPv6 address in brackets
  std::string port;      ///< with its ':'
  std::string app;       ///< "/live/"; an instance, if any, belongs to the stream
  std::string stream;    ///< without query and options
  std::string query;     ///< what follows, from the '?' on
  bool options = false;  ///< those of librtmp stand behind a blank, and may name what is missing
};

Pieces Take(const std::string& url) {
  Pieces pieces;
  std::size_t at = 0;
  const auto until = [&](std::size_t end) {
    end = std::min(end, url.size());
    auto piece = url.substr(at, end - at);
    at = end;
    return piece;
  };
  pieces.options = url.find(' ') != std::string::npos;
  const auto scheme = url.find(Separator);
  if (scheme != std::string::npos) pieces.scheme = until(scheme + sizeof Separator - 1);
  std::string authority = until(url.find_first_of("/? ", at));
  const auto host = authority.rfind('@') + 1;  // npos wraps to 0
  pieces.user = authority.substr(0, host);
  authority.erase(0, host);
  const auto bracket = authority.find(']');
  const auto port = authority.find(':', bracket == std::string::npos ? 0 : bracket);
  pieces.host = authority.substr(0, port);
  if (port != std::string::npos) pieces.port = authority.substr(port);
  const auto end = std::min(url.find_first_of("? ", at), url.size());
  const auto slash = url.find('/', at + 1);
  pieces.app = until(slash < end ? slash + 1 : end);
  pieces.stream = until(end);
  pieces.query = until(url.size());
  return pieces;
}

/// True when the address ends behind its application.
bool LacksStream(const Pieces& pieces) {
  return !pieces.options && pieces.app.size() > 2 && pieces.app.back() == '/' &&
         pieces.stream.empty() && pieces.query.empty();
}

bool IsPort(const std::string& text) {
  constexpr unsigned long Largest = 65535;
  return !text.empty() && text.size() < sizeof "65535" &&
         text.find_first_not_of("0123456789") == std::string::npos && std::stoul(text) >= 1 &&
         std::stoul(text) <= Largest;
}

Status CannotRead(const std::string& path) {
  const std::string reason = std::strerror(errno);
  return Status::Failed("cannot open \"" + path + "\": " + reason);
}

}  // namespace

std::string ShownUrl(const std::string& url) {
  // As the lines of the plug-in do.
  constexpr std::size_t Shown = 4;
  constexpr std::size_t WorthHiding = 8;
  const Pieces pieces = Take(url);
  const bool hidden = pieces.stream.size() >= WorthHiding;
  return pieces.scheme + (pieces.user.empty() ? "" : "***@") + pieces.host + pieces.port +
         pieces.app + (hidden ? pieces.stream.substr(0, Shown) + "..." : pieces.stream);
}

std::string UrlFault(const std::string& url, bool key) {
  const std::string shown = "\"" + ShownUrl(url) + "\" ";
  const Pieces pieces = Take(url);
  if (pieces.scheme.empty()) return shown + "is no address: " + Expected;
  const std::string scheme = pieces.scheme.substr(0, pieces.scheme.find(':'));
  const auto same = [&scheme](const std::string& known) {
    return base::Hash(known.c_str()) == base::Hash(scheme.c_str());
  };
  if (std::none_of(Schemes.begin(), Schemes.end(), same)) {
    return shown + "cannot be published to: \"" + scheme + "\" is no kind of RTMP" +
           base::Suggest(scheme, Schemes);
  }
  if (!pieces.user.empty()) {
    return shown + "names a user: librtmp takes one behind the address, as in " +
           "\"rtmp://HOST/APPLICATION/STREAM pubUser=USER pubPasswd=PASSWORD\"";
  }
  if (pieces.host.empty()) return shown + "names no server: " + Expected;
  if (!pieces.port.empty() && !IsPort(pieces.port.substr(1))) {
    return shown + "has no usable port: \"" + pieces.port.substr(1) +
           "\" is no number from 1 to 65535";
  }
  if (pieces.options || (key && LacksStream(pieces))) return {};
  if (pieces.app.size() < 2 || pieces.app == "//") {
    return shown + "names no application and stream: " + Expected;
  }
  // A query of the application may stand in front of the stream.
  const auto behind = pieces.query.find('/');
  const bool later = behind != std::string::npos && behind + 1 < pieces.query.size();
  if (!later && pieces.stream.find_first_not_of('/') == std::string::npos) {
    return shown + "names no stream: " + Expected +
           ", or a stream key from --key-file or NIMBO_KEY behind APPLICATION/";
  }
  return {};
}

Result<std::vector<std::string>> Complete(const std::vector<std::string>& urls,
                                          const std::string& key) {
  std::vector<std::string> complete;
  for (const std::string& url : urls) {
    const std::string fault = UrlFault(url, !key.empty());
    if (!fault.empty()) return Status::Failed(fault);
    complete.push_back(LacksStream(Take(url)) ? url + key : url);
  }
  return complete;
}

Result<std::string> ReadKey(const std::string& path) {
  std::ifstream file(path);
  if (!file) return CannotRead(path);
  std::string line;
  std::getline(file, line);
  std::string key(text::Trimmed(line));
  if (key.empty()) return Status::Failed("\"" + path + "\" holds no stream key in its first line");
  return key;
}

Result<std::vector<std::string>> ReadUrls(const std::string& path) {
  std::ifstream file(path);
  if (!file) return CannotRead(path);
  std::vector<std::string> urls;
  for (std::string line; std::getline(file, line);) {
    std::string url(text::Trimmed(line));
    if (!url.empty() && url.front() != '#') urls.push_back(std::move(url));
  }
  if (urls.empty()) return Status::Failed("\"" + path + "\" holds no address");
  return urls;
}

}  // namespace nimbo::publication
