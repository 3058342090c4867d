// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include "LumaretMacHelper/Linux/UserFolders.hpp"
#include "Tests/OnLinux/Adapters/TemporaryHome.hpp"

namespace lumaret::tests {
namespace {

class UserFolders : public ::testing::Test {
 protected:
  static std::filesystem::path accountHome() { return ::getpwuid(::geteuid())->pw_dir; }

  TemporaryHome home_;
};

TEST_F(UserFolders, HomeIsWhatTheEnvironmentSays) { EXPECT_EQ(homeFolder(), home_.path()); }

TEST_F(UserFolders, AnUnsetHomeGivesWayToTheHomeOfTheAccount) {
  ::unsetenv("HOME");
  EXPECT_EQ(homeFolder(), accountHome());
}

TEST_F(UserFolders, ARelativeHomeGivesWayToTheHomeOfTheAccount) {
  ::setenv("HOME", "somewhere", 1);
  EXPECT_EQ(homeFolder(), accountHome());
}

TEST_F(UserFolders, AnEmptyHomeGivesWayToTheHomeOfTheAccount) {
  ::setenv("HOME", "", 1);
  EXPECT_EQ(homeFolder(), accountHome());
}

TEST_F(UserFolders, AMissingHomeGivesWayToTheHomeOfTheAccount) {
  ::setenv("HOME", (home_ / "missing").c_str(), 1);
  EXPECT_EQ(homeFolder(), accountHome());
}

TEST_F(UserFolders, BaseFoldersLieInHome) {
  EXPECT_EQ(dataHomeFolder(), home_ / ".local/share");
  EXPECT_EQ(configHomeFolder(), home_ / ".config");
}

TEST_F(UserFolders, BaseFoldersMayBeElsewhere) {
  ::setenv("XDG_DATA_HOME", "/data", 1);
  ::setenv("XDG_CONFIG_HOME", "/config", 1);
  EXPECT_EQ(dataHomeFolder(), "/data");
  EXPECT_EQ(configHomeFolder(), "/config");
}

TEST_F(UserFolders, ARelativeBaseFolderIsIgnored) {
  ::setenv("XDG_DATA_HOME", "data", 1);
  EXPECT_EQ(dataHomeFolder(), home_ / ".local/share");
}

}  // namespace
}  // namespace lumaret::tests
