// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"
#include "Tests/OverStandIn/AppleFrameworks/CoreFoundationStandIn/Contents.hpp"

using namespace standin;

namespace {

/// Replaces the text with the string that `convert` makes of it. Folding and composing make no
/// character more than three times as long.
template <typename Convert>
void change(Text& text, Convert convert) {
  UErrorCode status = U_ZERO_ERROR;
  Text result(text.size() * 3, u'\0');
  const int32_t length = convert(text.data(), static_cast<int32_t>(text.size()), result.data(),
                                 static_cast<int32_t>(result.size()), &status);
  result.resize(static_cast<std::size_t>(length));
  text = result;
}

/// Like Apple's library, reads a stray byte 0xA9 as U+FFFD.
std::optional<Text> leniently(std::string_view bytes) {
  if (const auto text = fromUTF8(bytes)) {
    return text;
  }
  std::string replaced;
  for (const char byte : bytes) {
    replaced += byte == '\xa9' ? "\xef\xbf\xbd" : std::string(1, byte);
  }
  return fromUTF8(replaced);
}

}  // namespace

extern "C" {

CFTypeID CFStringGetTypeID() { return typeIdentifier<Text>(); }

// Like Apple's library, drops one leading U+FEFF.
CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean) {
  require(encoding == kCFStringEncodingUTF8, "UTF-8");
  auto text = leniently({reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count)});
  if (text && text->starts_with(u'\ufeff')) {
    text->erase(0, 1);
  }
  return text ? as<CFStringRef>(make(*text)) : nullptr;
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar* characters, CFIndex count) {
  return as<CFStringRef>(make(Text(characters, characters + count)));
}

CFIndex CFStringGetLength(CFStringRef text) {
  return static_cast<CFIndex>(contentAs<Text>(text).size());
}

// Converts all or, here, nothing. A caller without a buffer only gets a size that suffices: here it
// is the largest possible size of the string, and all characters count as converted.
CFIndex CFStringGetBytes(CFStringRef text, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
                         Boolean, UInt8* buffer, CFIndex maxBufLen, CFIndex* usedBufLen) {
  const Text& whole = contentAs<Text>(text);
  require(encoding == kCFStringEncodingUTF8 && lossByte == 0, "UTF-8 without a replacement");
  require(range.location == 0 && static_cast<std::size_t>(range.length) == whole.size(),
          "the text");
  if (buffer == nullptr) {
    *usedBufLen = range.length * 3;
    return range.length;
  }
  int32_t size = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strToUTF8(reinterpret_cast<char*>(buffer), static_cast<int32_t>(maxBufLen), &size, whole.data(),
              static_cast<int32_t>(whole.size()), &status);
  *usedBufLen = U_SUCCESS(status) != 0 ? size : 0;
  return U_SUCCESS(status) != 0 ? range.length : 0;
}

CFComparisonResult CFStringCompareWithOptionsAndLocale(CFStringRef left, CFStringRef right,
                                                       CFRange range, CFStringCompareFlags options,
                                                       CFLocaleRef) {
  require(options == kCFCompareLocalized, "a comparison by locale");
  const int order =
      contentAs<Text>(left)
          .substr(static_cast<std::size_t>(range.location), static_cast<std::size_t>(range.length))
          .compare(contentAs<Text>(right));
  return order < 0 ? kCFCompareLessThan : order > 0 ? kCFCompareGreaterThan : kCFCompareEqualTo;
}

CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef, CFIndex maxLength, CFStringRef text) {
  require(maxLength == 0, "no limit of the length");
  return as<CFMutableStringRef>(make(contentAs<Text>(text)));
}

void CFStringNormalize(CFMutableStringRef text, CFStringNormalizationForm form) {
  require(form == kCFStringNormalizationFormC, "form C");
  change(contentAs<Text>(text), [](auto source, auto size, auto target, auto room, auto* status) {
    return unorm2_normalize(unorm2_getNFCInstance(status), source, size, target, room, status);
  });
}

void CFStringFold(CFMutableStringRef text, CFStringCompareFlags flags, CFLocaleRef locale) {
  require(flags == kCFCompareCaseInsensitive, "folding of case");
  const bool isTurkish = locale != nullptr && contentAs<Locale>(locale).name == "tr";
  const uint32_t options = isTurkish ? U_FOLD_CASE_EXCLUDE_SPECIAL_I : U_FOLD_CASE_DEFAULT;
  change(contentAs<Text>(text), [=](auto source, auto size, auto target, auto room, auto* status) {
    return u_strFoldCase(target, room, source, size, options, status);
  });
}

CFLocaleRef CFLocaleCopyCurrent() {
  const Call call("");
  return call.result<CFLocaleRef>([] { return make(Locale{machine()["locale"]}); });
}
}
