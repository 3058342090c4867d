// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/ChromeInstallation.hpp"

#include <cstdlib>

#include "LumaretMacHelper/Linux/UserFolders.hpp"
#include "LumaretMacHelper/POSIX/Process.hpp"

namespace lumaret {
namespace {

/// Follows Chrome: a variable may name the folder itself, or the configuration folder that contains
/// the product's folder.
std::filesystem::path chosenUserDataFolder(const char* product) {
  if (const char* folder = std::getenv("CHROME_USER_DATA_DIR");
      folder != nullptr && *folder != '\0') {
    return folder;
  }
  if (const char* folder = std::getenv("CHROME_CONFIG_HOME");
      folder != nullptr && *folder != '\0') {
    return std::filesystem::path(folder) / product;
  }
  return configHomeFolder() / product;
}

}  // namespace

ChromeInstallation ChromeInstallation::current() {
  const std::filesystem::path googleChrome = "/opt/google/chrome/google-chrome";
  const std::filesystem::path chromium = "/usr/bin/chromium";
  if (!isExecutableFile(googleChrome) && isExecutableFile(chromium)) {
    return {chromium, "/etc/chromium/policies/managed", chosenUserDataFolder("chromium")};
  }
  return {googleChrome, "/etc/opt/chrome/policies/managed", chosenUserDataFolder("google-chrome")};
}

}  // namespace lumaret
