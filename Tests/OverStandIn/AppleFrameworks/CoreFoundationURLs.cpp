// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"
#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"
#include "Tests/OverStandIn/AppleFrameworks/UnicodeConversion.hpp"

using namespace standin;

extern "C" {

// More lenient than any release of Core Foundation: any text is an address.
CFURLRef CFURLCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex count,
                              CFStringEncoding encoding, CFURLRef baseURL) {
  requireUTF8(encoding, __func__);
  const std::string text(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count));
  const Call call(__func__, text + ", " + described(baseURL, __func__));
  return call.result<CFURLRef>([&] { return createAs<CFURLRef>(URLObject{text}); });
}

CFStringRef CFURLCopyScheme(CFURLRef url) {
  const std::string& text = as<URLObject>(url, __func__).text;
  const Call call(__func__, text);
  return call.result<CFStringRef>([&]() -> CFStringRef {
    const std::size_t end = text.find_first_of(":/?#");
    return end == std::string::npos || text[end] != ':'
               ? nullptr
               : createAs<CFStringRef>(TextObject{*fromUTF8(text.substr(0, end))});
  });
}
}
