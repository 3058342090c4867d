// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>
#include <gmock/gmock.h>

#include <compare>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationReference.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/Conformance/OrderConformance.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"

namespace lumaret::tests {
namespace {

using testing::ElementsAre;

class CoreFoundationOrder : public OverStandIn {};

/// The framework's case-insensitive comparison. It is not a consistent order for all names.
std::weak_ordering ownComparison(const std::string& left, const std::string& right) {
  const auto locale = CoreFoundationReference<CFLocaleRef>::adopt(CFLocaleCopyCurrent());
  const auto leftText = coreFoundationText(left);
  return static_cast<CFIndex>(CFStringCompareWithOptionsAndLocale(
             leftText.get(), coreFoundationText(right).get(),
             CFRangeMake(0, CFStringGetLength(leftText.get())),
             kCFCompareCaseInsensitive | kCFCompareLocalized, locale.get())) <=> 0;
}

TEST_F(CoreFoundationOrder, IsThatOfTheFrameworkForNamesThatItOrdersConsistently) {
  const std::vector<std::string> pieces = {"a", "A", "b",        "B",        "z", "Z",
                                           "o", "e", "\xc3\xa9", "\xc3\xb1", "N", "s",
                                           " ", "k", "r",        "1",        "10"};
  std::mt19937 generator(1);  // NOLINT(cert-msc51-cpp): Each run has the same names.
  for (const char* language : {"en", "es", "sv", "ja"}) {
    machine().locale = language;
    const auto compare = localizedCaseInsensitiveComparison();
    for (int count = 0; count < 300; ++count) {
      const auto left = conformance::madeOf(pieces, 1 + generator() % 4, generator);
      const auto right = conformance::madeOf(pieces, 1 + generator() % 4, generator);
      EXPECT_EQ(compare(left, right), ownComparison(left, right))
          << language << ": " << left << " " << right;
    }
  }
}

TEST_F(CoreFoundationOrder, ComparesWholeStringsUnderTheCurrentLocaleWhichItReadsOnce) {
  const auto compare = localizedCaseInsensitiveComparison();
  (void)compare("Ana", "Bea");
  (void)compare("\xc3\x89va", "");
  EXPECT_THAT(standin::trace(),
              ElementsAre("CFLocaleCopyCurrent()",
                          "CFStringCompareWithOptionsAndLocale(ana, bea, 3, 32, locale)",
                          "CFStringCompareWithOptionsAndLocale(\xc3\xa9va, , 3, 32, locale)"));
}

TEST_F(CoreFoundationOrder, RefusesAStringThatIsNotUTF8) {
  EXPECT_THROW((void)localizedCaseInsensitiveComparison()("\xff", "a"), std::invalid_argument);
}

}  // namespace
}  // namespace lumaret::tests
