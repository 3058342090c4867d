// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <cstring>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"
#include "Tests/OverStandIn/AppleFrameworks/CoreFoundationStandIn/Contents.hpp"
#include "Tests/OverStandIn/AppleFrameworks/UnicodeConversion.hpp"

using namespace standin;

namespace {

void requireUTF8(CFStringEncoding encoding, const char* function) {
  if (encoding != kCFStringEncodingUTF8) {
    refuse(function, "another encoding than UTF-8");
  }
}

/// Whether the byte continues the character of a byte before it.
bool continues(std::string_view bytes, std::size_t index) {
  for (std::size_t length = 1; length <= std::min<std::size_t>(index, 3); ++length) {
    const auto before = static_cast<unsigned char>(bytes[index - length]);
    if ((before & 0xc0) != 0x80) {
      return before >= 0xc0 && length < (before < 0xe0 ? 2U : before < 0xf0 ? 3U : 4U);
    }
  }
  return false;
}

/// The string that `convert` makes of the text. Folding and composing make no character more than
/// three times as long.
template <typename Convert>
Text converted(const Text& text, Convert convert) {
  UErrorCode status = U_ZERO_ERROR;
  Text result(text.size() * 3, u'\0');
  const int32_t length = convert(text.data(), static_cast<int32_t>(text.size()), result.data(),
                                 static_cast<int32_t>(result.size()), &status);
  if (U_FAILURE(status) != 0) {
    refuse("ICU", u_errorName(status));
  }
  result.resize(static_cast<std::size_t>(length));
  return result;
}

/// Reads UTF-8 like Apple's library: drops one leading U+FEFF, and replaces a stray byte 0xA9 with
/// U+FFFD.
std::optional<Text> leniently(std::string_view bytes) {
  std::string lenient;
  for (std::size_t index = 0; index < bytes.size(); ++index) {
    const bool isStray = bytes[index] == '\xa9' && !continues(bytes, index);
    lenient += isStray ? "\xef\xbf\xbd" : std::string(1, bytes[index]);
  }
  auto text = fromUTF8(lenient);
  if (text && text->starts_with(u'\ufeff')) {
    text->erase(0, 1);
  }
  return text;
}

}  // namespace

extern "C" {

CFTypeID CFStringGetTypeID() { return contentTypeIdentifier<TextObject>(); }

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean) {
  requireUTF8(encoding, __func__);
  const auto text =
      leniently({reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count)});
  return text ? createContentAs<CFStringRef>(TextObject{*text}) : nullptr;
}

CFIndex CFStringGetLength(CFStringRef text) {
  return static_cast<CFIndex>(contentAs<TextObject>(text, __func__).text.size());
}

// A caller without a buffer only gets a size that suffices. Here it is the largest possible size of
// the string, and all characters count as converted.
CFIndex CFStringGetBytes(CFStringRef text, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
                         Boolean, UInt8* buffer, CFIndex maxBufLen, CFIndex* usedBufLen) {
  requireUTF8(encoding, __func__);
  const std::u16string_view whole = contentAs<TextObject>(text, __func__).text;
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
  if (options != kCFCompareLocalized) {
    refuse(__func__, "another comparison than by locale");
  }
  const int order = textOf(left, __func__).compare(textOf(right, __func__));
  return order < 0 ? kCFCompareLessThan : order > 0 ? kCFCompareGreaterThan : kCFCompareEqualTo;
}

CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef, CFIndex maxLength, CFStringRef text) {
  if (maxLength != 0) {
    refuse(__func__, "a limit of the length");
  }
  return createContentAs<CFMutableStringRef>(contentAs<TextObject>(text, __func__));
}

void CFStringNormalize(CFMutableStringRef text, CFStringNormalizationForm form) {
  if (form != kCFStringNormalizationFormC) {
    refuse(__func__, "another form than C");
  }
  Text& content = contentAs<TextObject>(text, __func__).text;
  content = converted(content, [](auto source, auto size, auto target, auto room, auto* status) {
    return unorm2_normalize(unorm2_getNFCInstance(status), source, size, target, room, status);
  });
}

// By the case folding of Unicode, which depends on the locale only for Turkish.
void CFStringFold(CFMutableStringRef text, CFStringCompareFlags flags, CFLocaleRef locale) {
  if (flags != kCFCompareCaseInsensitive) {
    refuse(__func__, "another folding than of case");
  }
  Text& content = contentAs<TextObject>(text, __func__).text;
  const std::uint32_t options = locale != nullptr && machine().locale == "tr"
                                    ? U_FOLD_CASE_EXCLUDE_SPECIAL_I
                                    : U_FOLD_CASE_DEFAULT;
  content = converted(content, [=](auto source, auto size, auto target, auto room, auto* status) {
    return u_strFoldCase(target, room, source, size, options, status);
  });
}

CFLocaleRef CFLocaleCopyCurrent() {
  const Call call(__func__, "");
  return call.result<CFLocaleRef>([] { return createContentAs<CFLocaleRef>(LocaleObject()); });
}
}
