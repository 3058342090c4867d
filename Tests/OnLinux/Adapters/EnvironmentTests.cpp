// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unicode/uloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "LumaretMacHelper/Linux/ChromeInstallation.hpp"
#include "LumaretMacHelper/Linux/UserFolders.hpp"
#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "Tests/OnLinux/Adapters/PrivateMachine.hpp"

namespace lumaret::tests {
namespace {

using ::testing::ElementsAre;

class Installation : public ::testing::Test {
 protected:
  static void install(const std::filesystem::path& executable) {
    writeFile(executable, "");
    ::chmod(executable.c_str(), 0755);
  }

  /// Name, executable, managed policies and profile.
  static std::vector<std::filesystem::path> current() {
    const auto chrome = ChromeInstallation::current();
    return {chrome.name, chrome.executable, chrome.managedPolicies, chrome.userDataFolder};
  }

  TemporaryHome home_;
  PrivateMounts mounts_{{"/usr/bin"}};
};

TEST_F(Installation, IsGoogleChromesUnlessOnlyChromiumIsInstalled) {
  const auto google =
      ElementsAre("Google Chrome", "/opt/google/chrome/google-chrome",
                  "/etc/opt/chrome/policies/managed", home_ / ".config/google-chrome");
  EXPECT_THAT(current(), google);
  install("/usr/bin/chromium");
  EXPECT_THAT(current(), ElementsAre("Chromium", "/usr/bin/chromium",
                                     "/etc/chromium/policies/managed", home_ / ".config/chromium"));
  install("/opt/google/chrome/google-chrome");
  EXPECT_THAT(current(), google);
}

TEST_F(Installation, IsKnownByName) {
  EXPECT_EQ(ChromeInstallation::managedPoliciesOf("Google Chrome"),
            "/etc/opt/chrome/policies/managed");
  EXPECT_EQ(ChromeInstallation::managedPoliciesOf("Chromium"), "/etc/chromium/policies/managed");
  EXPECT_EQ(ChromeInstallation::managedPoliciesOf("chromium"), std::nullopt);
  EXPECT_EQ(ChromeInstallation::managedPoliciesOf(""), std::nullopt);
}

TEST_F(Installation, HasTheProfileThatChromesVariablesName) {
  const auto profile = [] { return ChromeInstallation::current().userDataFolder; };
  ::setenv("CHROME_CONFIG_HOME", "", 1);
  ::setenv("CHROME_USER_DATA_DIR", "", 1);
  ::setenv("XDG_CONFIG_HOME", "/config", 1);
  EXPECT_EQ(profile(), "/config/google-chrome");
  ::setenv("CHROME_CONFIG_HOME", "/chrome", 1);
  EXPECT_EQ(profile(), "/chrome/google-chrome");
  ::setenv("CHROME_USER_DATA_DIR", "/profile", 1);
  EXPECT_EQ(profile(), "/profile");
}

TEST(UserFolders, HomeIsTheAccountsUnlessTheEnvironmentNamesAFolder) {
  const TemporaryHome home;
  EXPECT_EQ(homeFolder(), home.path());
  const passwd* account = ::getpwuid(::geteuid());
  const std::string accountHome = account != nullptr ? account->pw_dir : "/";
  for (const std::string& other :
       {std::string("somewhere"), std::string(), (home / "missing").string()}) {
    ::setenv("HOME", other.c_str(), 1);
    EXPECT_EQ(homeFolder(), accountHome) << other;
  }
  ::unsetenv("HOME");
  EXPECT_EQ(homeFolder(), accountHome);
}

TEST(UserFolders, BaseFoldersAreInHomeUnlessTheEnvironmentNamesAPath) {
  const TemporaryHome home;
  ::setenv("XDG_DATA_HOME", "data", 1);
  EXPECT_EQ(dataHomeFolder(), home / ".local/share");
  EXPECT_EQ(configHomeFolder(), home / ".config");
  ::setenv("XDG_DATA_HOME", "/data", 1);
  ::setenv("XDG_CONFIG_HOME", "/config", 1);
  EXPECT_EQ(dataHomeFolder(), "/data");
  EXPECT_EQ(configHomeFolder(), "/config");
}

class LocalizedOrder : public ::testing::Test {
 protected:
  static std::vector<std::string> sorted(std::vector<std::string> names) {
    std::stable_sort(names.begin(), names.end(),
                     [compare = localizedCaseInsensitiveComparison()](
                         const auto& left, const auto& right) { return compare(left, right) < 0; });
    return names;
  }

  TemporaryHome home_;  // Without the variables of the locale.
};

TEST_F(LocalizedOrder, FallsBackToTheRootCollation) {
  for (const char* language :
       {"C", "", "POSIX", "C.UTF-8", "en_US.UTF-8", "xx_NOWHERE.UTF-8", "no such locale at all"}) {
    ::setenv("LANG", language, 1);
    EXPECT_THAT(sorted({"Zoe", "beta", "Émile", "Beta", "alpha", "ALPHA", "Emma", "10", "_"}),
                ElementsAre("_", "10", "alpha", "ALPHA", "beta", "Beta", "Émile", "Emma", "Zoe"))
        << language;
  }
}

TEST_F(LocalizedOrder, FollowsTheUsersLanguage) {
  ::setenv("LANG", "de_DE.UTF-8", 1);
  EXPECT_THAT(sorted({"Örjan", "Zara", "Olle"}), ElementsAre("Olle", "Örjan", "Zara"));
  ::setenv("LC_COLLATE", "sv_SE.UTF-8", 1);
  EXPECT_THAT(sorted({"Örjan", "Zara", "Olle"}), ElementsAre("Olle", "Zara", "Örjan"));
  ::setenv("LC_ALL", "de_DE.UTF-8", 1);
  EXPECT_THAT(sorted({"Ö", "Z"}), ElementsAre("Ö", "Z"));
  ::setenv("LC_ALL", "", 1);
  EXPECT_THAT(sorted({"Ö", "Z"}), ElementsAre("Z", "Ö"));
  // With ICU 76, some variables end the process if ICU takes its default from them.
  EXPECT_STREQ(uloc_getDefault(), "");  // The root locale.
}

}  // namespace
}  // namespace lumaret::tests
