// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <unordered_map>
#include <utility>
#include <variant>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"

using namespace standin;

// Callers pass the addresses of these callbacks. The collections of the stand-in own their
// elements, whatever the callbacks are.
struct CFArrayCallBacks {};
struct CFDictionaryKeyCallBacks {};
struct CFDictionaryValueCallBacks {};

namespace {

struct True {};
/// A string in the form of Core Foundation: UTF-16, which may be malformed.
using Text = std::u16string;
struct Date {
  double seconds;
};
using Bytes = std::vector<std::uint8_t>;
/// Owned by the array.
using Elements = std::vector<CFTypeRef>;
/// Owned by the dictionary.
using Members = std::vector<std::pair<CFTypeRef, CFTypeRef>>;
struct Locale {
  std::string name;
};

using Content = std::variant<True, Text, double, Date, Bytes, Elements, Members, Locale, Object>;

struct Counted {
  Content content;
  bool isConstant;
  std::size_t references = 1;
};

/// Released objects stay here without references. No other object gets their addresses, so that a
/// use after release is recognized.
auto& objects() {
  static auto& all = *new std::unordered_map<CFTypeRef, std::unique_ptr<Counted>>();
  return all;
}

Counted& live(CFTypeRef reference, const char* function) {
  const auto found = objects().find(reference);
  require(found != objects().end(), "an object", function);
  require(found->second->references > 0, "an object that was not released", function);
  return *found->second;
}

CFTypeRef make(Content content, bool isConstant = false) {
  auto object = std::make_unique<Counted>(Counted{std::move(content), isConstant});
  const CFTypeRef reference = object.get();
  objects().emplace(reference, std::move(object));
  return reference;
}

/// Refuses an object of another type.
template <typename Type>
Type& contentAs(CFTypeRef object, const char* function = __builtin_FUNCTION()) {
  auto* const typed = std::get_if<Type>(&live(object, function).content);
  require(typed != nullptr, "an object of the right type", function);
  return *typed;
}

template <typename Type>
CFTypeID typeIdentifier() {
  return Content(Type()).index();
}

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

namespace standin {

CFTypeRef create(Object object) { return make(std::move(object)); }

Object& content(CFTypeRef object, Object::Type type, const char* function) {
  auto& found = contentAs<Object>(object, function);
  require(found.type == type, "an object of the right type", function);
  return found;
}

CFTypeID typeIdentifier(Object::Type type) {
  return std::variant_size_v<Content> + static_cast<std::size_t>(type);
}

CFStringRef constantText(const char* name) {
  return as<CFStringRef>(make(Text(name, name + std::strlen(name)), /*isConstant=*/true));
}

std::size_t liveObjects() {
  return static_cast<std::size_t>(std::ranges::count_if(objects(), [](const auto& object) {
    return !object.second->isConstant && object.second->references > 0;
  }));
}

}  // namespace standin

extern "C" {

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFArrayCallBacks kCFTypeArrayCallBacks;
const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;
const CFBooleanRef kCFBooleanTrue = as<CFBooleanRef>(make(True(), /*isConstant=*/true));
const CFStringRef kCFPreferencesAnyHost = constantText("kCFPreferencesAnyHost");
const CFStringRef kCFPreferencesCurrentUser = constantText("kCFPreferencesCurrentUser");

CFTypeID CFGetTypeID(CFTypeRef object) {
  const Content& content = live(object, __func__).content;
  const auto* const security = std::get_if<Object>(&content);
  return security != nullptr ? typeIdentifier(security->type) : content.index();
}

CFTypeRef CFRetain(CFTypeRef object) {
  ++live(object, __func__).references;
  return object;
}

void CFRelease(CFTypeRef object) {
  Counted& counted = live(object, __func__);
  if (counted.isConstant || --counted.references > 0) {
    return;
  }
  if (const auto* elements = std::get_if<Elements>(&counted.content)) {
    std::ranges::for_each(*elements, CFRelease);
  } else if (const auto* members = std::get_if<Members>(&counted.content)) {
    for (const auto& [key, value] : *members) {
      CFRelease(key);
      CFRelease(value);
    }
  }
  counted.content = True();
}

Boolean CFEqual(CFTypeRef left, CFTypeRef right) {
  const auto* const leftText = std::get_if<Text>(&live(left, __func__).content);
  const auto* const rightText = std::get_if<Text>(&live(right, __func__).content);
  return leftText != nullptr && rightText != nullptr ? *leftText == *rightText : left == right;
}

CFTypeID CFArrayGetTypeID() { return typeIdentifier<Elements>(); }

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex count,
                         const CFArrayCallBacks* callBacks) {
  require(callBacks == &kCFTypeArrayCallBacks, "callbacks that own the elements");
  Elements elements(values, values + count);
  std::ranges::for_each(elements, CFRetain);
  return as<CFArrayRef>(make(std::move(elements)));
}

CFIndex CFArrayGetCount(CFArrayRef array) {
  return static_cast<CFIndex>(contentAs<Elements>(array).size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  const auto& elements = contentAs<Elements>(array);
  require(index >= 0 && static_cast<std::size_t>(index) < elements.size(), "an index");
  return elements[static_cast<std::size_t>(index)];
}

CFTypeID CFDictionaryGetTypeID() { return typeIdentifier<Members>(); }

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values,
                                   CFIndex count, const CFDictionaryKeyCallBacks* keyCallBacks,
                                   const CFDictionaryValueCallBacks* valueCallBacks) {
  require(keyCallBacks == &kCFTypeDictionaryKeyCallBacks &&
              valueCallBacks == &kCFTypeDictionaryValueCallBacks,
          "callbacks that own the members");
  Members members;
  for (CFIndex index = 0; index < count; ++index) {
    members.emplace_back(CFRetain(keys[index]), CFRetain(values[index]));
  }
  return as<CFDictionaryRef>(make(std::move(members)));
}

const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key) {
  const auto& members = contentAs<Members>(dictionary);
  const auto found = std::ranges::find_if(
      members, [key](const auto& member) { return CFEqual(member.first, key) != 0; });
  return found == members.end() ? nullptr : found->second;
}

CFTypeID CFNumberGetTypeID() { return typeIdentifier<double>(); }

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType, const void* value) {
  return as<CFNumberRef>(make(*static_cast<const double*>(value)));
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value) {
  require(type == kCFNumberDoubleType, "the type double");
  *static_cast<double*>(value) = contentAs<double>(number);
  return 0;  // As for a number that has been rounded to the nearest double.
}

CFTypeID CFDateGetTypeID() { return typeIdentifier<Date>(); }

CFDateRef CFDateCreate(CFAllocatorRef, CFAbsoluteTime seconds) {
  return as<CFDateRef>(make(Date{seconds}));
}

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) { return contentAs<Date>(date).seconds; }

CFTypeID CFDataGetTypeID() { return typeIdentifier<Bytes>(); }

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length) {
  return as<CFDataRef>(make(Bytes(bytes, bytes + length)));
}

CFIndex CFDataGetLength(CFDataRef data) {
  return static_cast<CFIndex>(contentAs<Bytes>(data).size());
}

const UInt8* CFDataGetBytePtr(CFDataRef data) { return contentAs<Bytes>(data).data(); }

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
