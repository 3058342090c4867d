// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret::tests::conformance {

/// The contents of a self-signed certificate.
struct Certificate {
  /// Short names of attributes ("CN", "O", "OU", "L", "C") and their values in UTF-8, in the order
  /// of the certificate. Both subject and issuer have this name.
  std::vector<std::pair<std::string, std::string>> name;
  /// In whole seconds.
  Date expiresAt = std::chrono::sys_days(std::chrono::year(2099) / 12 / 31);
};

inline Certificate named(std::string commonName) { return {{{"CN", std::move(commonName)}}}; }

}  // namespace lumaret::tests::conformance
