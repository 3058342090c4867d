// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"
#include "Tests/Support/Cpp/FreshIdentity.hpp"

namespace lumaret::tests::conformance {

/// The contents of a self-signed certificate.
struct Certificate {
  /// Short names of attributes ("CN", "O", "OU", "L", "C") and their values in UTF-8, in the order
  /// of the certificate. Both subject and issuer have this name.
  std::vector<std::pair<std::string, std::string>> name;

  static constexpr Date expiresAt =
      std::chrono::sys_days(std::chrono::year(2087) / 3 / 1) + std::chrono::seconds(45296);
  static constexpr const char* expiry = "20870301123456Z";
};

inline Certificate named(std::string commonName) { return {{{"CN", std::move(commonName)}}}; }

/// A real certificate with these contents, and its key.
inline FreshIdentity makeIdentity(const TemporaryFolder& folder, const Certificate& certificate,
                                  KeyType keyType) {
  std::string subject;
  for (const auto& [shortName, value] : certificate.name) {
    subject += "/" + shortName + "=";
    for (const char character : value) {
      subject += character == '/' ? "\\/" : std::string(1, character);
    }
  }
  return tests::makeIdentity(folder, subject, keyType, Certificate::expiry);
}

}  // namespace lumaret::tests::conformance
