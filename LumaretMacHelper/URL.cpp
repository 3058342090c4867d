// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/URL.hpp"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

// The grammar of RFC 3986, appendix A. The functions have the names that it uses.

namespace lumaret {
namespace {

/// unreserved / sub-delims
constexpr std::string_view plain =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~!$&'()*+,;=";
constexpr std::string_view letters = plain.substr(0, 52);
constexpr std::string_view digits = plain.substr(52, 10);
constexpr std::string_view hexDigits = "0123456789ABCDEFabcdef";

bool contains(std::string_view text, char character) {
  return text.find(character) != std::string_view::npos;
}

/// True for the empty text.
bool consistsOf(std::string_view text, std::string_view characters) {
  return text.find_first_not_of(characters) == std::string_view::npos;
}

using Halves = std::pair<std::string_view, std::string_view>;

/// Divides the text at the first such character. Without one, nothing is after it.
Halves divide(std::string_view text, char character) {
  const std::size_t end = std::min(text.find(character), text.size());
  return {text.substr(0, end), text.substr(std::min(end + 1, text.size()))};
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (contains(text, separator)) {
    const auto [part, rest] = divide(text, separator);
    parts.push_back(part);
    text = rest;
  }
  parts.push_back(text);
  return parts;
}

/// unreserved / pct-encoded / sub-delims / one of the further characters, any number of times
bool isText(std::string_view text, std::string_view further) {
  for (std::size_t percent = 0; (percent = text.find('%', percent)) != std::string_view::npos;) {
    const std::string_view code = text.substr(++percent, 2);
    if (code.size() != 2 || !consistsOf(code, hexDigits)) {
      return false;
    }
  }
  return consistsOf(text, std::string(plain).append(further).append("%"));
}

bool isScheme(std::string_view text) {
  return !text.empty() && contains(letters, text.front()) &&
         consistsOf(text, std::string(letters).append(digits).append("+-."));
}

/// 0 to 255, without leading zeros
bool isDecOctet(std::string_view text) {
  return !text.empty() && text.size() <= 3 && consistsOf(text, digits) &&
         (text.size() == 1 || text.front() != '0') && (text.size() < 3 || text <= "255");
}

bool isIPv4Address(std::string_view text) {
  const auto octets = split(text, '.');
  return octets.size() == 4 && std::ranges::all_of(octets, isDecOctet);
}

bool isH16(std::string_view text) {
  return !text.empty() && text.size() <= 4 && consistsOf(text, hexDigits);
}

/// The number of groups in a part of an IPv6 address; 9, more than it has, if the text is not a
/// list of groups.
std::size_t countOfGroups(std::string_view text) {
  if (text.empty()) {
    return 0;
  }
  const auto groups = split(text, ':');
  return std::ranges::all_of(groups, isH16) ? groups.size() : 9;
}

bool isIPv6Address(std::string_view text) {
  std::string groups(text);
  // An IPv4 address at the end stands for two groups.
  if (const std::size_t last = text.rfind(':') + 1; isIPv4Address(text.substr(last))) {
    groups = groups.substr(0, last) + "0:0";
  }
  const std::size_t gap = groups.find("::");
  return gap == std::string::npos
             ? countOfGroups(groups) == 8
             : countOfGroups(groups.substr(0, gap)) + countOfGroups(groups.substr(gap + 2)) < 8;
}

/// "v" 1*HEXDIG "." 1*( unreserved / sub-delims / ":" )
bool isIPvFuture(std::string_view text) {
  const auto [version, address] = divide(text, '.');
  return version.size() > 1 && contains("vV", version.front()) &&
         consistsOf(version.substr(1), hexDigits) && !address.empty() &&
         consistsOf(address, std::string(plain) + ":");
}

/// [ userinfo "@" ] host [ ":" port ]
bool isAuthority(std::string_view text) {
  const std::string_view host = text.substr(text.find('@') + 1);  // The sum is 0 without an "@".
  if (!isText(text.substr(0, text.size() - host.size()), ":@")) {
    return false;
  }
  if (!host.starts_with('[')) {
    const auto [name, port] = divide(host, ':');
    return isText(name, "") && consistsOf(port, digits);
  }
  const auto [literal, port] = divide(host.substr(1), ']');
  return contains(host, ']') && (isIPv6Address(literal) || isIPvFuture(literal)) &&
         (port.empty() || (port.front() == ':' && consistsOf(port.substr(1), digits)));
}

}  // namespace

std::optional<URL> parseURL(const std::string& text) {
  if (text.empty()) {
    return std::nullopt;
  }
  std::string_view rest = text;
  std::optional<std::string> scheme;
  // A colon in the first segment ends a scheme: a relative reference cannot have one there.
  if (const std::size_t end = rest.find_first_of(":/?#");
      end != std::string_view::npos && rest[end] == ':') {
    if (!isScheme(rest.substr(0, end))) {
      return std::nullopt;
    }
    scheme = rest.substr(0, end);
    rest.remove_prefix(end + 1);
  }
  const auto [withoutFragment, fragment] = divide(rest, '#');
  const auto [hierarchy, query] = divide(withoutFragment, '?');
  const auto [authority, path] =
      hierarchy.starts_with("//") ? divide(hierarchy.substr(2), '/') : Halves{{}, hierarchy};
  return isAuthority(authority) && isText(path, ":@/") && isText(query, ":@/?") &&
                 isText(fragment, ":@/?")
             ? std::optional(URL{text, scheme})
             : std::nullopt;
}

}  // namespace lumaret
