// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <chrono>
#include <ctime>
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
  /// In whole seconds.
  Date expiresAt = std::chrono::sys_days(std::chrono::year(2099) / 12 / 31);
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
  const std::time_t seconds =
      std::chrono::floor<std::chrono::seconds>(certificate.expiresAt).time_since_epoch().count();
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  // X.509 has a UTCTime up to 2049, and a GeneralizedTime after it.
  std::array<char, 32> expiry{};
  std::strftime(expiry.data(), expiry.size(), utc.tm_year < 150 ? "%y%m%d%H%M%SZ" : "%Y%m%d%H%M%SZ",
                &utc);
  return tests::makeIdentity(folder, subject, keyType, expiry.data());
}

}  // namespace lumaret::tests::conformance
