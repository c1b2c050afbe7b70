#include "host/base/ShownAddress.h"

#include <algorithm>

namespace nimbo::base {

std::string ShownAddress(const std::string& url) {
  constexpr char Scheme[] = "://";
  constexpr char Hidden[] = "***";
  const auto begin = url.find(Scheme);
  if (begin == std::string::npos) return url;
  const auto authority = begin + sizeof Scheme - 1;
  const auto path = std::min(url.find_first_of("/?#", authority), url.size());
  std::string shown = url.substr(0, authority);
  const auto host = url.substr(authority, path - authority).rfind('@');
  if (host == std::string::npos) {
    shown += url.substr(authority, path - authority);
  } else {
    // A user alone may be a token.
    const auto user = url.substr(authority, host);
    const auto password = user.find(':');
    shown += (password == std::string::npos ? "" : user.substr(0, password + 1)) + Hidden;
    shown += url.substr(authority + host, path - authority - host);
  }
  const auto query = std::min(url.find('?', path), url.size());
  shown += url.substr(path, query - path);
  return query == url.size() ? shown : shown + "?" + Hidden;
}

}  // namespace nimbo::base
