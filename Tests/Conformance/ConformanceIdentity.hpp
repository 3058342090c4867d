// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <chrono>
#include <cstdio>
#include <string>

#include "Tests/Conformance/ConformanceCertificate.hpp"
#include "Tests/Support/Cpp/FreshIdentity.hpp"

namespace lumaret::tests::conformance {

/// The time in the form of X.509: a UTCTime up to 2049, and a GeneralizedTime after it.
inline std::string x509Time(Date time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(std::chrono::floor<std::chrono::seconds>(time - day));
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%04d%02u%02u%02d%02d%02dZ",
                static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return date.year() < std::chrono::year(2050) ? text.data() + 2 : text.data();
}

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
  return tests::makeIdentity(folder, subject, keyType, x509Time(certificate.expiresAt));
}

}  // namespace lumaret::tests::conformance
