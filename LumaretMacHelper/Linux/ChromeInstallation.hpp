// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace lumaret {

/// The browser that is installed on this machine.
struct ChromeInstallation {
  /// "Google Chrome" or "Chromium".
  std::string_view name;
  std::filesystem::path executable;
  /// Holds the policies that apply to every user of the machine.
  std::filesystem::path managedPolicies;
  /// Holds the profile that the browser uses if it is started without options.
  std::filesystem::path userDataFolder;

  /// Chromium if this user may execute it and not Google Chrome, or else Google Chrome.
  static ChromeInstallation current();

  /// For the browser with this name, installed or not; nothing for any other name.
  static std::optional<std::filesystem::path> managedPoliciesOf(std::string_view name);
};

}  // namespace lumaret
