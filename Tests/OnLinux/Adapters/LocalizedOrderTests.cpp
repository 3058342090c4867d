// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <unicode/uloc.h>

#include <algorithm>
#include <vector>

#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "Tests/OnLinux/Adapters/PrivateMachine.hpp"

namespace lumaret::tests {
namespace {

using ::testing::ElementsAre;

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
       {"", "C", "POSIX", "C.UTF-8", "en_US.UTF-8", "xx_NOWHERE.UTF-8", "no such locale at all"}) {
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
