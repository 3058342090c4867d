// SPDX-License-Identifier: Apache-2.0
// Calls of Apple's own Core Foundation that are traced, and that a test may answer. The linker
// replaces each of them with __wrap_…, and the library's own functions are __real_….

#include <CoreFoundation/CoreFoundation.h>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"

using standin::Call;
using standin::described;

extern "C" {

CFComparisonResult __real_CFStringCompareWithOptionsAndLocale(CFStringRef left, CFStringRef right,
                                                              CFRange range,
                                                              CFStringCompareFlags options,
                                                              CFLocaleRef locale);
CFComparisonResult __wrap_CFStringCompareWithOptionsAndLocale(CFStringRef left, CFStringRef right,
                                                              CFRange range,
                                                              CFStringCompareFlags options,
                                                              CFLocaleRef locale) {
  constexpr const char* function = "CFStringCompareWithOptionsAndLocale";
  const Call call(function, described(left, function) + ", " + described(right, function) + ", " +
                                std::to_string(range.length) + ", " + std::to_string(options) +
                                ", " + described(locale, function));
  return __real_CFStringCompareWithOptionsAndLocale(left, right, range, options, locale);
}

CFLocaleRef __real_CFLocaleCopyCurrent();
CFLocaleRef __wrap_CFLocaleCopyCurrent() {
  const Call call("CFLocaleCopyCurrent", "");
  return call.result<CFLocaleRef>([] {
    const std::string& name = standin::machine().locale;
    if (name.empty()) {
      return __real_CFLocaleCopyCurrent();
    }
    const CFStringRef identifier =
        CFStringCreateWithCString(nullptr, name.c_str(), kCFStringEncodingUTF8);
    const CFLocaleRef locale = CFLocaleCreate(nullptr, identifier);
    CFRelease(identifier);
    return locale;
  });
}
}
