// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <unicode/uloc.h>

#include <algorithm>
#include <string>
#include <vector>

#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "Tests/OnLinux/Adapters/TemporaryHome.hpp"

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

/// Values of LANG that choose no language.
class OrderWithoutALanguage : public LocalizedOrder,
                              public ::testing::WithParamInterface<std::string> {};

TEST_P(OrderWithoutALanguage, IgnoresCaseAndKeepsAccentedLettersWithTheirBase) {
  if (!GetParam().empty()) {
    ::setenv("LANG", GetParam().c_str(), 1);
  }
  EXPECT_THAT(sorted({"Zoe", "beta", "Émile", "Beta", "alpha", "ALPHA", "Emma", "10", "_"}),
              ElementsAre("_", "10", "alpha", "ALPHA", "beta", "Beta", "Émile", "Emma", "Zoe"));
}

INSTANTIATE_TEST_SUITE_P(InEveryForm, OrderWithoutALanguage,
                         ::testing::Values<std::string>("", "C", "POSIX", "C.UTF-8", "en_US.UTF-8",
                                                        "xx_NOWHERE.UTF-8",
                                                        "no such locale at all"));

TEST_F(LocalizedOrder, StringsThatDifferOnlyInCaseAreEquivalent) {
  const auto compare = localizedCaseInsensitiveComparison();
  EXPECT_EQ(compare("Anna", "aNNA"), std::weak_ordering::equivalent);
  EXPECT_EQ(compare("", ""), std::weak_ordering::equivalent);
}

TEST_F(LocalizedOrder, StringsThatDifferInAccentsAreNotEquivalent) {
  EXPECT_NE(localizedCaseInsensitiveComparison()("resume", "résumé"),
            std::weak_ordering::equivalent);
}

TEST_F(LocalizedOrder, ComposedAndDecomposedLettersAreEquivalent) {
  EXPECT_EQ(localizedCaseInsensitiveComparison()("\xc3\xa9", "e\xcc\x81"),
            std::weak_ordering::equivalent);
}

TEST_F(LocalizedOrder, FollowsTheUsersLanguage) {
  ::setenv("LANG", "sv_SE.UTF-8", 1);
  EXPECT_THAT(sorted({"Örjan", "Zara", "Olle"}), ElementsAre("Olle", "Zara", "Örjan"));
  ::setenv("LANG", "de_DE.UTF-8", 1);
  EXPECT_THAT(sorted({"Örjan", "Zara", "Olle"}), ElementsAre("Olle", "Örjan", "Zara"));
}

/// With ICU 76, some values of the variables end the process if ICU takes its default from them.
TEST_F(LocalizedOrder, ICUTakesNoDefaultFromTheEnvironment) {
  ::setenv("LANG", "sv_SE.UTF-8", 1);
  EXPECT_THAT(sorted({"Örjan", "Zara", "Olle"}), ElementsAre("Olle", "Zara", "Örjan"));
  EXPECT_STREQ(uloc_getDefault(), "");  // The root locale.
}

TEST_F(LocalizedOrder, TheVariablesOverrideOneAnotherAsInPOSIX) {
  ::setenv("LANG", "de_DE.UTF-8", 1);
  ::setenv("LC_COLLATE", "sv_SE.UTF-8", 1);
  EXPECT_THAT(sorted({"Ö", "Z"}), ElementsAre("Z", "Ö"));
  ::setenv("LC_ALL", "de_DE.UTF-8", 1);
  EXPECT_THAT(sorted({"Ö", "Z"}), ElementsAre("Ö", "Z"));
  ::setenv("LC_ALL", "", 1);
  EXPECT_THAT(sorted({"Ö", "Z"}), ElementsAre("Z", "Ö"));
}

}  // namespace
}  // namespace lumaret::tests
