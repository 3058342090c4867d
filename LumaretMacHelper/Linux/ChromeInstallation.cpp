// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/ChromeInstallation.hpp"

#include <cstdlib>

#include "LumaretMacHelper/Linux/UserFolders.hpp"
#include "LumaretMacHelper/POSIX/Process.hpp"

namespace lumaret {
namespace {

struct Product {
  const char* name;
  const char* executable;
  const char* managedPolicies;
  const char* userDataFolder;  // below the configuration folder
};

constexpr Product googleChrome = {"Google Chrome", LUMARET_GOOGLE_CHROME,
                                  LUMARET_GOOGLE_CHROME_POLICIES "/managed", "google-chrome"};
constexpr Product chromium = {"Chromium", LUMARET_CHROMIUM, LUMARET_CHROMIUM_POLICIES "/managed",
                              "chromium"};

/// Follows Chrome: a variable may name the folder itself, or the configuration folder that contains
/// the product's folder.
std::filesystem::path chosenUserDataFolder(const char* product) {
  const auto folderIn = [](const char* variable) {
    const char* value = std::getenv(variable);
    return std::filesystem::path(value != nullptr ? value : "");
  };
  if (auto folder = folderIn("CHROME_USER_DATA_DIR"); !folder.empty()) {
    return folder;
  }
  const auto configuration = folderIn("CHROME_CONFIG_HOME");
  return (configuration.empty() ? configHomeFolder() : configuration) / product;
}

}  // namespace

ChromeInstallation ChromeInstallation::current() {
  const Product& product =
      !isExecutableFile(googleChrome.executable) && isExecutableFile(chromium.executable)
          ? chromium
          : googleChrome;
  return {product.name, product.executable, product.managedPolicies,
          chosenUserDataFolder(product.userDataFolder)};
}

std::optional<std::filesystem::path> ChromeInstallation::managedPoliciesOf(std::string_view name) {
  for (const Product& product : {googleChrome, chromium}) {
    if (name == product.name) {
      return product.managedPolicies;
    }
  }
  return std::nullopt;
}

}  // namespace lumaret
