// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>

#include "LumaretMacHelper/Platform.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationReference.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"

namespace lumaret {

TextComparison localizedCaseInsensitiveComparison() {
  const auto locale = CoreFoundationReference<CFLocaleRef>::adopt(::CFLocaleCopyCurrent());
  return [locale](const std::string& left, const std::string& right) -> std::weak_ordering {
    const auto leftText = coreFoundationText(left);
    const CFComparisonResult result = ::CFStringCompareWithOptionsAndLocale(
        leftText.get(), coreFoundationText(right).get(),
        CFRangeMake(0, ::CFStringGetLength(leftText.get())),
        kCFCompareCaseInsensitive | kCFCompareLocalized, locale.get());
    return static_cast<CFIndex>(result) <=> 0;
  };
}

}  // namespace lumaret
