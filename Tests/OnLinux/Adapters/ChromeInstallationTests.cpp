// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "LumaretMacHelper/Linux/ChromeInstallation.hpp"
#include "Tests/OnLinux/Adapters/PrivateMounts.hpp"
#include "Tests/OnLinux/Adapters/TemporaryHome.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {
namespace {

class Installation : public ::testing::Test {
 protected:
  static void installGoogleChrome() {
    writeFile("/opt/google/chrome/google-chrome", "");
    ::chmod("/opt/google/chrome/google-chrome", 0755);
  }

  TemporaryHome home_;
  PrivateMounts mounts_;
};

TEST_F(Installation, GoogleChromeIsPreferred) {
  installGoogleChrome();
  const auto chrome = ChromeInstallation::current();
  EXPECT_EQ(chrome.executable, "/opt/google/chrome/google-chrome");
  EXPECT_EQ(chrome.managedPolicies, "/etc/opt/chrome/policies/managed");
  EXPECT_EQ(chrome.userDataFolder, home_ / ".config/google-chrome");
}

TEST_F(Installation, ChromiumIsUsedIfItIsTheOnlyBrowser) {
  const auto chrome = ChromeInstallation::current();
  EXPECT_EQ(chrome.executable, "/usr/bin/chromium");
  EXPECT_EQ(chrome.managedPolicies, "/etc/chromium/policies/managed");
  EXPECT_EQ(chrome.userDataFolder, home_ / ".config/chromium");
}

TEST_F(Installation, KnowsBothBrowsersByName) {
  EXPECT_EQ(ChromeInstallation::current().name, "Chromium");
  installGoogleChrome();
  EXPECT_EQ(ChromeInstallation::current().name, "Google Chrome");
  EXPECT_EQ(ChromeInstallation::managedPoliciesOf("Google Chrome"),
            "/etc/opt/chrome/policies/managed");
  EXPECT_EQ(ChromeInstallation::managedPoliciesOf("Chromium"), "/etc/chromium/policies/managed");
  EXPECT_EQ(ChromeInstallation::managedPoliciesOf("chromium"), std::nullopt);
  EXPECT_EQ(ChromeInstallation::managedPoliciesOf(""), std::nullopt);
}

TEST_F(Installation, TheProfileLiesInTheConfigurationFolder) {
  ::setenv("XDG_CONFIG_HOME", "/config", 1);
  EXPECT_EQ(ChromeInstallation::current().userDataFolder, "/config/chromium");
}

TEST_F(Installation, ChromesOwnVariableOverridesTheConfigurationFolder) {
  ::setenv("XDG_CONFIG_HOME", "/config", 1);
  ::setenv("CHROME_CONFIG_HOME", "/chrome", 1);
  EXPECT_EQ(ChromeInstallation::current().userDataFolder, "/chrome/chromium");
}

TEST_F(Installation, AVariableForTheWholeProfileOverridesBoth) {
  ::setenv("CHROME_CONFIG_HOME", "/chrome", 1);
  ::setenv("CHROME_USER_DATA_DIR", "/profile", 1);
  EXPECT_EQ(ChromeInstallation::current().userDataFolder, "/profile");
}

TEST_F(Installation, AnEmptyVariableCountsAsUnset) {
  ::setenv("CHROME_CONFIG_HOME", "", 1);
  ::setenv("CHROME_USER_DATA_DIR", "", 1);
  EXPECT_EQ(ChromeInstallation::current().userDataFolder, home_ / ".config/chromium");
}

}  // namespace
}  // namespace lumaret::tests
