// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>

#include <cstring>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"
#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"
#include "Tests/OverStandIn/AppleFrameworks/UnicodeConversion.hpp"

using namespace standin;

namespace {

/// Case-insensitive for the letters of ASCII and Latin-1: enough to see that it was asked for.
Text folded(Text text) {
  for (char16_t& unit : text) {
    const bool isCapital = (unit >= u'A' && unit <= u'Z') ||
                           (unit >= u'\u00c0' && unit <= u'\u00de' && unit != u'\u00d7');
    unit = isCapital ? static_cast<char16_t>(unit + 0x20) : unit;
  }
  return text;
}

}  // namespace

extern "C" {

CFTypeID CFStringGetTypeID() { return typeIdentifier<TextObject>(); }

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean) {
  requireUTF8(encoding, __func__);
  const auto text =
      fromUTF8({reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count)});
  return text ? createAs<CFStringRef>(TextObject{*text}) : nullptr;
}

CFIndex CFStringGetLength(CFStringRef text) {
  return static_cast<CFIndex>(as<TextObject>(text, __func__).text.size());
}

// A caller without a buffer only learns of a size that suffices: here it is the largest that the
// text could take, and every character counts as converted.
CFIndex CFStringGetBytes(CFStringRef text, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
                         Boolean, UInt8* buffer, CFIndex maxBufLen, CFIndex* usedBufLen) {
  requireUTF8(encoding, __func__);
  const std::u16string_view whole = as<TextObject>(text, __func__).text;
  if (lossByte != 0 || range.location < 0 || range.length < 0 ||
      static_cast<std::size_t>(range.location + range.length) > whole.size()) {
    refuse(__func__, "a replacement, or a range beyond the text");
  }
  if (buffer == nullptr) {
    *usedBufLen = range.length * 3;
    return range.length;
  }
  const auto converted = toUTF8(whole.substr(static_cast<std::size_t>(range.location),
                                             static_cast<std::size_t>(range.length)));
  if (converted.text.size() > static_cast<std::size_t>(maxBufLen)) {
    refuse(__func__, "too small a buffer");
  }
  std::memcpy(buffer, converted.text.data(), converted.text.size());
  *usedBufLen = static_cast<CFIndex>(converted.text.size());
  return static_cast<CFIndex>(converted.units);
}

CFComparisonResult CFStringCompareWithOptionsAndLocale(CFStringRef left, CFStringRef right,
                                                       CFRange range, CFStringCompareFlags options,
                                                       CFLocaleRef locale) {
  const Call call(__func__, described(left, __func__) + ", " + described(right, __func__) + ", " +
                                std::to_string(range.length) + ", " + std::to_string(options) +
                                ", " + described(locale, __func__));
  Text leftText = as<TextObject>(left, __func__).text;
  Text rightText = as<TextObject>(right, __func__).text;
  if ((options & kCFCompareCaseInsensitive) != 0) {
    leftText = folded(leftText);
    rightText = folded(rightText);
  }
  const int order = leftText.compare(rightText);
  return order < 0 ? kCFCompareLessThan : order > 0 ? kCFCompareGreaterThan : kCFCompareEqualTo;
}

CFLocaleRef CFLocaleCopyCurrent() {
  const Call call(__func__, "");
  return call.result<CFLocaleRef>([] { return createAs<CFLocaleRef>(LocaleObject()); });
}
}
