// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

namespace lumaret {

/// An address: a URL, or a relative reference.
struct URL {
  /// The text that was parsed, unchanged.
  std::string absoluteString;
  /// As it was written. Absent from a relative reference.
  std::optional<std::string> scheme;
};

/// Parses an address by the grammar of RFC 3986. Nothing for any other text, and for the empty one,
/// although that is a relative reference.
std::optional<URL> parseURL(const std::string& text);

}  // namespace lumaret
