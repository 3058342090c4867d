// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <compare>
#include <stdexcept>

#include "LumaretMacHelper/Platform.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"

namespace lumaret::tests {
namespace {

using testing::ElementsAre;

class CoreFoundationOrder : public OverStandIn {};

TEST_F(CoreFoundationOrder, IgnoresCase) {
  const auto compare = localizedCaseInsensitiveComparison();
  EXPECT_EQ(compare("alpha", "Beta"), std::weak_ordering::less);
  EXPECT_EQ(compare("BETA", "alpha"), std::weak_ordering::greater);
  EXPECT_EQ(compare("\xc3\x89va", "\xc3\xa9VA"), std::weak_ordering::equivalent);
  EXPECT_EQ(compare("", "a"), std::weak_ordering::less);
}

TEST_F(CoreFoundationOrder, ComparesWholeTextsUnderTheCurrentLocaleWhichItReadsOnce) {
  const auto compare = localizedCaseInsensitiveComparison();
  (void)compare("Ana", "Bea");
  (void)compare("\xc3\x89va", "");
  EXPECT_THAT(standin::trace(),
              ElementsAre("CFLocaleCopyCurrent()",
                          "CFStringCompareWithOptionsAndLocale(Ana, Bea, 3, 33, locale)",
                          "CFStringCompareWithOptionsAndLocale(\xc3\x89va, , 3, 33, locale)"));
}

TEST_F(CoreFoundationOrder, RefusesATextThatIsNotUTF8) {
  EXPECT_THROW((void)localizedCaseInsensitiveComparison()("\xff", "a"), std::invalid_argument);
}

}  // namespace
}  // namespace lumaret::tests
