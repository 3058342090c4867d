// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

namespace lumaret {

/// An address: a URL, or a relative reference. parseURL() in Platform.hpp creates one.
struct URL {
  /// The text that was parsed, unchanged.
  std::string absoluteString;
  /// As it was written, in capitals or not. Absent from a relative reference.
  std::optional<std::string> scheme;
};

}  // namespace lumaret
