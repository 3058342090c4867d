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
  /// The folder of the policies that apply to every user of the machine.
  std::filesystem::path managedPolicies;
  /// The folder of the profile that the browser uses if it is started without options.
  std::filesystem::path userDataFolder;

  /// Google Chrome if this user may execute it, or else Chromium if they may execute that. If
  /// neither is there, Google Chrome.
  static ChromeInstallation current();

  /// The managed policies of the browser with this name, installed or not; nothing if it is neither
  /// of the two.
  static std::optional<std::filesystem::path> managedPoliciesOf(std::string_view name);
};

}  // namespace lumaret
