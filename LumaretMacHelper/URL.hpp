#pragma once

#include <optional>
#include <string>

namespace lumaret {

struct URL {
  /// The text that was parsed, unchanged.
  std::string absoluteString;
  /// In the letter case in which it was written; absent from a relative reference.
  std::optional<std::string> scheme;

  /// What the platform's RFC 3986 parser accepts, relative references included; nothing for any
  /// other text and for the empty one.
  static std::optional<URL> parse(const std::string& text);
};

}  // namespace lumaret
