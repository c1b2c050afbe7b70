#pragma once

#include <string>
#include <vector>

#include "common/Status.h"

namespace nimbo::publication {

/// An address as it may be shown: no user in front of its server, nothing behind a `?` or a blank,
/// and of a stream's name of eight characters or more the first four.
std::string ShownUrl(const std::string& url);

/// What keeps an address from being published to; empty when nothing seen in it does. One that
/// ends behind its application is complete when a `key` will be put there.
std::string UrlFault(const std::string& url, bool key = false);

/// The addresses with `key` put behind those that end behind their application. Fails for the first
/// one that cannot be published to.
Result<std::vector<std::string>> Complete(const std::vector<std::string>& urls,
                                          const std::string& key);

/// The stream key that the file holds in its first line. Fails when there is none.
Result<std::string> ReadKey(const std::string& path);
/// The addresses that the file holds, one a line; empty lines and those that begin with `#` are
/// passed over. Fails when there is none.
Result<std::vector<std::string>> ReadUrls(const std::string& path);

}  // namespace nimbo::publication
