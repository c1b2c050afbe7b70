#pragma once

#include <string>

namespace nimbo::publication {

/// An address as it may be shown: without the stream's token.
std::string ShownUrl(const std::string& url);

/// What keeps an address from being published to; empty when nothing seen in it does.
std::string UrlFault(const std::string& url);

}  // namespace nimbo::publication
