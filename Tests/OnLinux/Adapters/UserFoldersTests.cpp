// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

#include "LumaretMacHelper/Linux/UserFolders.hpp"
#include "Tests/OnLinux/Adapters/TemporaryHome.hpp"

namespace lumaret::tests {
namespace {

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

}  // namespace
}  // namespace lumaret::tests
