// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <string_view>

#include "LumaretMacHelper/Platform.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationReference.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"

namespace lumaret {
namespace {

constexpr std::string_view punctuation = "-._~:/?#[]@!$&'()*+,;=";

bool isHexadecimalDigit(char character) {
  return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'F') ||
         (character >= 'a' && character <= 'f');
}

bool isLetterOrDigit(char character) {
  return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
         (character >= 'a' && character <= 'z');
}

/// Only the characters of RFC 3986, and each percent sign before two hexadecimal digits. What
/// Core Foundation lets pass beyond them, or escapes by itself, differs from release to release.
bool hasOnlyURLCharacters(std::string_view text) {
  for (std::size_t index = 0; index < text.size(); ++index) {
    const char character = text[index];
    if (character == '%') {
      const std::string_view digits = text.substr(index + 1, 2);
      if (digits.size() < 2 || !std::all_of(digits.begin(), digits.end(), isHexadecimalDigit)) {
        return false;
      }
      index += 2;
    } else if (!isLetterOrDigit(character) &&
               punctuation.find(character) == std::string_view::npos) {
      return false;
    }
  }
  return true;
}

}  // namespace

std::optional<URL> parseURL(const std::string& text) {
  if (text.empty() || !hasOnlyURLCharacters(text)) {
    return std::nullopt;
  }
  const auto url = CoreFoundationReference<CFURLRef>::adopt(::CFURLCreateWithBytes(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
      static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, /*baseURL=*/nullptr));
  if (!url) {
    return std::nullopt;
  }
  const auto scheme = CoreFoundationReference<CFStringRef>::adopt(::CFURLCopyScheme(url.get()));
  return URL{text, scheme ? utf8Text(scheme.get()) : std::nullopt};
}

}  // namespace lumaret
