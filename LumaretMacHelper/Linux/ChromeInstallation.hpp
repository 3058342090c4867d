// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace lumaret {

/// Where the Chrome that this machine has keeps what the tool needs.
struct ChromeInstallation {
  std::filesystem::path executable;
  /// The policies that hold for every user of the machine.
  std::filesystem::path managedPolicies;
  /// The profile that a start without options uses.
  std::filesystem::path userDataFolder;

  /// Google Chrome where it is installed, else Chromium where that is installed, else Google
  /// Chrome all the same.
  static ChromeInstallation current();
};

}  // namespace lumaret
