// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/AppleFrameworks/CoreFoundationStandIn/Contents.hpp"

#include <algorithm>
#include <cstring>
#include <memory>
#include <unordered_map>

using namespace standin;

// Callers pass the addresses of these callbacks. The collections of the stand-in own their
// elements, whatever the callbacks are.
struct CFArrayCallBacks {};
struct CFDictionaryKeyCallBacks {};
struct CFDictionaryValueCallBacks {};

namespace {

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

}  // namespace

namespace standin {

CFTypeRef make(Content content, bool isConstant) {
  auto object = std::make_unique<Counted>(Counted{std::move(content), isConstant});
  const CFTypeRef reference = object.get();
  objects().emplace(reference, std::move(object));
  return reference;
}

Content& contentOf(CFTypeRef object, const char* function) {
  return live(object, function).content;
}

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

void forgetEveryObject() {
  std::erase_if(objects(), [](const auto& object) { return !object.second->isConstant; });
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
  const Content& content = contentOf(object);
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
  const auto* const leftText = std::get_if<Text>(&contentOf(left));
  const auto* const rightText = std::get_if<Text>(&contentOf(right));
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
}
