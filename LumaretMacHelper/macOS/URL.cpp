// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstddef>
#include <string_view>

#include "LumaretMacHelper/Platform.hpp"

// The grammar of RFC 3986, appendix A. The functions have the names that it uses. Core Foundation
// has no parser for it: CFURLCreateWithBytes accepts nearly any text, such as "https://[::1" and
// "https://host:port/". Foundation's strict parser exists only since macOS 14.

namespace lumaret {
namespace {

constexpr std::string_view subDelims = "!$&'()*+,;=";

bool isAlpha(char character) {
  return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z');
}

bool isDigit(char character) { return character >= '0' && character <= '9'; }

bool isHexDigit(char character) {
  return isDigit(character) || (character >= 'A' && character <= 'F') ||
         (character >= 'a' && character <= 'f');
}

bool isOneOf(char character, std::string_view characters) {
  return characters.find(character) != std::string_view::npos;
}

/// unreserved / pct-encoded / sub-delims / one of the further characters, any number of times.
bool isText(std::string_view text, std::string_view further) {
  for (std::size_t index = 0; index < text.size(); ++index) {
    const char character = text[index];
    if (character == '%') {
      const std::string_view digits = text.substr(index + 1, 2);
      if (digits.size() != 2 || !std::all_of(digits.begin(), digits.end(), isHexDigit)) {
        return false;
      }
      index += 2;
    } else if (!isAlpha(character) && !isDigit(character) && !isOneOf(character, "-._~") &&
               !isOneOf(character, subDelims) && !isOneOf(character, further)) {
      return false;
    }
  }
  return true;
}

/// The part before the first of these characters, or the whole text.
std::string_view before(std::string_view text, std::string_view ends) {
  return text.substr(0, text.find_first_of(ends));
}

bool isScheme(std::string_view text) {
  return !text.empty() && isAlpha(text.front()) &&
         std::all_of(text.begin(), text.end(), [](char character) {
           return isAlpha(character) || isDigit(character) || isOneOf(character, "+-.");
         });
}

/// dec-octet: 0 to 255, without leading zeros.
bool isDecOctet(std::string_view text) {
  return !text.empty() && text.size() <= 3 && std::all_of(text.begin(), text.end(), isDigit) &&
         (text.size() == 1 || text.front() != '0') && (text.size() < 3 || text <= "255");
}

bool isIPv4Address(std::string_view text) {
  for (int octets = 1;; ++octets) {
    const std::string_view octet = before(text, ".");
    if (!isDecOctet(octet)) {
      return false;
    }
    text.remove_prefix(octet.size());
    if (text.empty() || octets == 4) {
      return text.empty() && octets == 4;
    }
    text.remove_prefix(1);
  }
}

/// The number of groups of 16 bits in the text, none of which may be missing. An IPv4 address at
/// the end counts as two. The empty text contains 0 groups. Negative if the text is not a list of
/// groups.
int countOfGroups(std::string_view text, bool mayEndWithIPv4) {
  int groups = 0;
  while (!text.empty()) {
    const std::string_view group = before(text, ":");
    const bool isLast = group.size() == text.size();
    if (isLast && mayEndWithIPv4 && isIPv4Address(group)) {
      return groups + 2;
    }
    if (group.empty() || group.size() > 4 || !std::all_of(group.begin(), group.end(), isHexDigit)) {
      return -1;
    }
    ++groups;
    text.remove_prefix(group.size());
    if (!isLast) {
      text.remove_prefix(1);
      if (text.empty()) {
        return -1;  // It ends with a colon.
      }
    }
  }
  return groups;
}

bool isIPv6Address(std::string_view text) {
  const std::size_t gap = text.find("::");
  if (gap == std::string_view::npos) {
    return countOfGroups(text, /*mayEndWithIPv4=*/true) == 8;
  }
  const int left = countOfGroups(text.substr(0, gap), /*mayEndWithIPv4=*/false);
  const int right = countOfGroups(text.substr(gap + 2), /*mayEndWithIPv4=*/true);
  return left >= 0 && right >= 0 && left + right <= 7;
}

/// "v" 1*HEXDIG "." 1*( unreserved / sub-delims / ":" )
bool isIPvFuture(std::string_view text) {
  if (text.empty() || !isOneOf(text.front(), "vV")) {
    return false;
  }
  text.remove_prefix(1);
  const std::string_view version = before(text, ".");
  const std::string_view address = text.substr(std::min(version.size() + 1, text.size()));
  return !version.empty() && std::all_of(version.begin(), version.end(), isHexDigit) &&
         !address.empty() && !isOneOf('%', address) && isText(address, ":");
}

/// [ userinfo "@" ] host [ ":" port ]
bool isAuthority(std::string_view text) {
  if (const std::size_t at = text.find('@'); at != std::string_view::npos) {
    if (!isText(text.substr(0, at), ":")) {
      return false;
    }
    text.remove_prefix(at + 1);
  }
  if (text.starts_with('[')) {
    const std::size_t end = text.find(']');
    if (end == std::string_view::npos) {
      return false;
    }
    const std::string_view literal = text.substr(1, end - 1);
    if (!isIPv6Address(literal) && !isIPvFuture(literal)) {
      return false;
    }
    text.remove_prefix(end + 1);
  } else {
    const std::string_view name = before(text, ":");
    if (!isText(name, "")) {
      return false;
    }
    text.remove_prefix(name.size());
  }
  return text.empty() ||
         (text.front() == ':' && std::all_of(text.begin() + 1, text.end(), isDigit));
}

}  // namespace

std::optional<URL> parseURL(const std::string& text) {
  if (text.empty()) {
    return std::nullopt;
  }
  std::string_view rest = text;
  std::optional<std::string> scheme;
  // A colon in the first segment ends a scheme: a relative reference cannot have one there.
  if (const std::string_view first = before(rest, ":/?#");
      first.size() < rest.size() && rest[first.size()] == ':') {
    if (!isScheme(first)) {
      return std::nullopt;
    }
    scheme = first;
    rest.remove_prefix(first.size() + 1);
  }
  if (const std::size_t hash = rest.find('#'); hash != std::string_view::npos) {
    if (!isText(rest.substr(hash + 1), ":@/?")) {
      return std::nullopt;
    }
    rest = rest.substr(0, hash);
  }
  if (const std::size_t mark = rest.find('?'); mark != std::string_view::npos) {
    if (!isText(rest.substr(mark + 1), ":@/?")) {
      return std::nullopt;
    }
    rest = rest.substr(0, mark);
  }
  if (rest.starts_with("//")) {
    const std::string_view authority = before(rest.substr(2), "/");
    if (!isAuthority(authority)) {
      return std::nullopt;
    }
    rest.remove_prefix(2 + authority.size());
  }
  return isText(rest, ":@/") ? std::optional(URL{text, scheme}) : std::nullopt;
}

}  // namespace lumaret
