// SPDX-License-Identifier: Apache-2.0
// Calls of Apple's own Core Foundation. They are counted and traced, and a test may replace their
// answers.

#include <CoreFoundation/CoreFoundation.h>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"
#include "Tests/OverStandIn/AppleFrameworks/OverCoreFoundation/References.hpp"

using standin::Call;
using standin::described;
using standin::obtained;

extern "C" {

CFTypeRef __wrap_CFRetain(CFTypeRef object) {
  standin::retain(object, "CFRetain");
  return object;
}

void __wrap_CFRelease(CFTypeRef object) { standin::release(object, "CFRelease"); }

Boolean __real_CFEqual(CFTypeRef left, CFTypeRef right);
Boolean __wrap_CFEqual(CFTypeRef left, CFTypeRef right) {
  const Call call("CFEqual", described(left, "CFEqual") + ", " + described(right, "CFEqual"));
  return __real_CFEqual(left, right);
}

CFArrayRef __real_CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                                const CFArrayCallBacks* callBacks);
CFArrayRef __wrap_CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                                const CFArrayCallBacks* callBacks) {
  return obtained(__real_CFArrayCreate(allocator, values, count, callBacks));
}

CFDictionaryRef __real_CFDictionaryCreate(CFAllocatorRef allocator, const void** keys,
                                          const void** values, CFIndex count,
                                          const CFDictionaryKeyCallBacks* keyCallBacks,
                                          const CFDictionaryValueCallBacks* valueCallBacks);
CFDictionaryRef __wrap_CFDictionaryCreate(CFAllocatorRef allocator, const void** keys,
                                          const void** values, CFIndex count,
                                          const CFDictionaryKeyCallBacks* keyCallBacks,
                                          const CFDictionaryValueCallBacks* valueCallBacks) {
  return obtained(
      __real_CFDictionaryCreate(allocator, keys, values, count, keyCallBacks, valueCallBacks));
}

CFStringRef __real_CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes,
                                           CFIndex count, CFStringEncoding encoding,
                                           Boolean isExternalRepresentation);
CFStringRef __wrap_CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes,
                                           CFIndex count, CFStringEncoding encoding,
                                           Boolean isExternalRepresentation) {
  return obtained(
      __real_CFStringCreateWithBytes(allocator, bytes, count, encoding, isExternalRepresentation));
}

CFMutableStringRef __real_CFStringCreateMutableCopy(CFAllocatorRef allocator, CFIndex maxLength,
                                                    CFStringRef text);
CFMutableStringRef __wrap_CFStringCreateMutableCopy(CFAllocatorRef allocator, CFIndex maxLength,
                                                    CFStringRef text) {
  return obtained(__real_CFStringCreateMutableCopy(allocator, maxLength, text));
}

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
      return obtained(__real_CFLocaleCopyCurrent());
    }
    const CFStringRef identifier =
        CFStringCreateWithCString(nullptr, name.c_str(), kCFStringEncodingUTF8);
    const CFLocaleRef locale = CFLocaleCreate(nullptr, identifier);
    __real_CFRelease(identifier);
    return obtained(locale);
  });
}
}
