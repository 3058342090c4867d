// SPDX-License-Identifier: Apache-2.0
#include <uriparser/Uri.h>

#include "LumaretMacHelper/Platform.hpp"

namespace lumaret {

std::optional<URL> parseURL(const std::string& text) {
  if (text.empty()) {
    return std::nullopt;
  }
  UriUriA uri;
  const char* const end = text.data() + text.size();
  if (uriParseSingleUriExA(&uri, text.data(), end, nullptr) != URI_SUCCESS) {
    return std::nullopt;
  }
  URL url = {text, std::nullopt};
  if (uri.scheme.first != nullptr) {
    url.scheme.emplace(uri.scheme.first, uri.scheme.afterLast);
  }
  uriFreeUriMembersA(&uri);
  return url;
}

}  // namespace lumaret
