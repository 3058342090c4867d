// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

namespace lumaret {

/// An address: a URL, or a relative reference. parseURL() in Platform.hpp makes one.
struct URL {
  /// The text that was parsed, unchanged.
  std::string absoluteString;
  /// In the letter case in which it was written; absent from a relative reference.
  std::optional<std::string> scheme;
};

}  // namespace lumaret
