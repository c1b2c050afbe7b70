#include "host/publication/Url.h"

#include <algorithm>
#include <vector>

#include "host/base/Nearest.h"
#include "nimbo/base/names.h"

namespace nimbo::publication {

namespace {

constexpr char Expected[] = "rtmp://HOST[:PORT]/APPLICATION/STREAM is expected";
constexpr char Separator[] = "://";

/// What librtmp can dial.
const std::vector<std::string> Schemes = {"rtmp", "rtmps", "rtmpt", "rtmpe", "rtmpte", "rtmpts"};

}  // namespace

std::string ShownUrl(const std::string& url) { return url.substr(0, url.find('?')); }

std::string UrlFault(const std::string& url) {
  const std::string shown = "\"" + ShownUrl(url) + "\" ";
  const auto end = url.find(Separator);
  if (end == std::string::npos) return shown + "is no address: " + Expected;
  const std::string scheme = url.substr(0, end);
  const auto same = [&scheme](const std::string& known) {
    return base::Hash(known.c_str()) == base::Hash(scheme.c_str());
  };
  if (std::none_of(Schemes.begin(), Schemes.end(), same)) {
    return shown + "cannot be published to: \"" + scheme + "\" is no kind of RTMP" +
           base::Suggest(scheme, Schemes);
  }
  const std::string rest = url.substr(end + sizeof Separator - 1);
  const auto path = rest.find('/');
  if (rest.empty() || rest[0] == '/' || rest[0] == ':')
    return shown + "names no server: " + Expected;
  // Behind a blank librtmp reads options, which may name what the address does not.
  const bool options = rest.find(' ') != std::string::npos;
  if (!options && rest.find_first_not_of('/', path) == std::string::npos) {
    return shown + "names no application and stream: " + Expected;
  }
  return {};
}

}  // namespace nimbo::publication
