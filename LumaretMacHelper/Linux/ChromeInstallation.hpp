// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace lumaret {

/// The paths of the browser that is installed on this machine.
struct ChromeInstallation {
  std::filesystem::path executable;
  /// The folder of the policies that apply to every user of the machine.
  std::filesystem::path managedPolicies;
  /// The folder of the profile that the browser uses if it is started without options.
  std::filesystem::path userDataFolder;

  /// Google Chrome if it is installed, or else Chromium if that is installed. If neither is, the
  /// paths are those of Google Chrome.
  static ChromeInstallation current();
};

}  // namespace lumaret
