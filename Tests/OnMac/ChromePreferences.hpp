// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <optional>

namespace lumaret::tests {

/// The user's own preference AutoSelectCertificateForUrls of com.google.Chrome, because its daemon
/// has no other place for it. The value that a test leaves there is removed.
///
/// Throws a std::runtime_error if the user already has a value, which would be at risk, and if
/// requirePermission throws one.
class ChromePreferences {
 public:
  ChromePreferences();
  ChromePreferences(const ChromePreferences&) = delete;
  ChromePreferences& operator=(const ChromePreferences&) = delete;
  ~ChromePreferences();

  void store(const nlohmann::json& value);
  /// As another process reads it.
  [[nodiscard]] std::optional<nlohmann::json> stored() const;
};

}  // namespace lumaret::tests
