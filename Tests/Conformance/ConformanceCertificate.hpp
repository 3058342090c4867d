// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret::tests::conformance {

/// What a self-signed certificate of a test says.
struct Certificate {
  /// Attributes in the certificate's order, by their short names ("CN", "O", "OU", "L", "C"), in
  /// UTF-8. It is the issuer's name as well.
  std::vector<std::pair<std::string, std::string>> name;
  /// To the second.
  Date expiresAt = std::chrono::sys_days(std::chrono::year(2099) / 12 / 31);
};

inline Certificate named(std::string commonName) { return {{{"CN", std::move(commonName)}}}; }

}  // namespace lumaret::tests::conformance
