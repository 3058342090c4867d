// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>

#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"

namespace lumaret {
namespace {

/// The text without differences of case and of composition. Core Foundation's own case-insensitive
/// comparison is not an order: with some letters, such as ß and the full-width ones, it is not even
/// transitive. It also tells a composed name from the same name decomposed.
CoreFoundationReference<CFMutableStringRef> folded(const std::string& text, CFLocaleRef locale) {
  constexpr CFIndex noLimit = 0;
  auto result = CoreFoundationReference<CFMutableStringRef>::adopt(
      ::CFStringCreateMutableCopy(kCFAllocatorDefault, noLimit, coreFoundationText(text).get()));
  if (!result) {
    throw std::bad_alloc();
  }
  ::CFStringNormalize(result.get(), kCFStringNormalizationFormC);
  ::CFStringFold(result.get(), kCFCompareCaseInsensitive, locale);
  return result;
}

}  // namespace

TextComparison localizedCaseInsensitiveComparison() {
  const auto locale = CoreFoundationReference<CFLocaleRef>::adopt(::CFLocaleCopyCurrent());
  return [locale](const std::string& left, const std::string& right) -> std::weak_ordering {
    const auto leftText = folded(left, locale.get());
    const CFComparisonResult result = ::CFStringCompareWithOptionsAndLocale(
        leftText.get(), folded(right, locale.get()).get(),
        CFRangeMake(0, ::CFStringGetLength(leftText.get())), kCFCompareLocalized, locale.get());
    return static_cast<CFIndex>(result) <=> 0;
  };
}

}  // namespace lumaret
