// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <optional>

namespace lumaret::tests {

/// The user's own preference AutoSelectCertificateForUrls of com.google.Chrome: its daemon knows no
/// other place for it. Whatever a test leaves there is removed.
///
/// Throws std::runtime_error where the user has a value already, which would be in danger, and
/// where testKeychainFolder does.
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
