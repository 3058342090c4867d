// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>

#include <cstring>

#include "Tests/OverStandIn/AppleFrameworks/CoreFoundationStandIn/Contents.hpp"

using namespace standin;

// Callers pass the addresses of these callbacks. The collections of the stand-in own their
// elements, whatever the callbacks are.
struct CFArrayCallBacks {};
struct CFDictionaryKeyCallBacks {};
struct CFDictionaryValueCallBacks {};

namespace {

CFTypeRef retained(CFTypeRef object, const char* function) {
  retain(object, function);
  return object;
}

void requireOwning(const void* given, const void* expected, const char* function) {
  if (given != expected) {
    refuse(function, "callbacks by which the collection would not own its objects");
  }
}

}  // namespace

extern "C" {

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFArrayCallBacks kCFTypeArrayCallBacks;
const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;
const CFBooleanRef kCFBooleanTrue = constantTrue();
const CFStringRef kCFPreferencesAnyHost = constantText("kCFPreferencesAnyHost");
const CFStringRef kCFPreferencesCurrentUser = constantText("kCFPreferencesCurrentUser");

CFTypeID CFGetTypeID(CFTypeRef object) { return typeIdentifierOf(content(object, __func__)); }

CFTypeRef CFRetain(CFTypeRef object) { return retained(object, __func__); }

void CFRelease(CFTypeRef object) { release(object, __func__); }

Boolean CFEqual(CFTypeRef left, CFTypeRef right) {
  const auto* const leftText = std::get_if<TextObject>(&content(left, __func__));
  const auto* const rightText = std::get_if<TextObject>(&content(right, __func__));
  return leftText != nullptr && rightText != nullptr ? leftText->text == rightText->text
                                                     : left == right;
}

CFTypeID CFArrayGetTypeID() { return contentTypeIdentifier<ArrayObject>(); }

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex count,
                         const CFArrayCallBacks* callBacks) {
  requireOwning(callBacks, &kCFTypeArrayCallBacks, __func__);
  ArrayObject array;
  for (CFIndex index = 0; index < count; ++index) {
    array.elements.push_back(retained(values[index], __func__));
  }
  return createContentAs<CFArrayRef>(std::move(array));
}

CFIndex CFArrayGetCount(CFArrayRef array) {
  return static_cast<CFIndex>(contentAs<ArrayObject>(array, __func__).elements.size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  const auto& elements = contentAs<ArrayObject>(array, __func__).elements;
  if (index < 0 || static_cast<std::size_t>(index) >= elements.size()) {
    refuse(__func__, "an index beyond the array");
  }
  return elements[static_cast<std::size_t>(index)];
}

CFTypeID CFDictionaryGetTypeID() { return contentTypeIdentifier<DictionaryObject>(); }

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values,
                                   CFIndex count, const CFDictionaryKeyCallBacks* keyCallBacks,
                                   const CFDictionaryValueCallBacks* valueCallBacks) {
  requireOwning(keyCallBacks, &kCFTypeDictionaryKeyCallBacks, __func__);
  requireOwning(valueCallBacks, &kCFTypeDictionaryValueCallBacks, __func__);
  DictionaryObject dictionary;
  for (CFIndex index = 0; index < count; ++index) {
    dictionary.entries.emplace_back(retained(keys[index], __func__),
                                    retained(values[index], __func__));
  }
  return createContentAs<CFDictionaryRef>(std::move(dictionary));
}

const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key) {
  const Text& wanted = contentAs<TextObject>(key, __func__).text;
  for (const auto& [entryKey, value] : contentAs<DictionaryObject>(dictionary, __func__).entries) {
    if (contentAs<TextObject>(entryKey, __func__).text == wanted) {
      return value;
    }
  }
  return nullptr;
}

CFTypeID CFNumberGetTypeID() { return contentTypeIdentifier<NumberObject>(); }

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value) {
  if (type != kCFNumberDoubleType) {
    refuse(__func__, "another type of number than double");
  }
  std::memcpy(value, &contentAs<NumberObject>(number, __func__).number, sizeof(double));
  return 0;  // As for a number that has been rounded to the nearest double.
}

CFTypeID CFDateGetTypeID() { return contentTypeIdentifier<DateObject>(); }

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) {
  return contentAs<DateObject>(date, __func__).seconds;
}

CFTypeID CFDataGetTypeID() { return contentTypeIdentifier<DataObject>(); }

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length) {
  return createContentAs<CFDataRef>(DataObject{{bytes, bytes + length}});
}

CFIndex CFDataGetLength(CFDataRef data) {
  return static_cast<CFIndex>(contentAs<DataObject>(data, __func__).bytes.size());
}

const UInt8* CFDataGetBytePtr(CFDataRef data) {
  return contentAs<DataObject>(data, __func__).bytes.data();
}
}
