// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CFRuntime.h>

#include <algorithm>
#include <array>
#include <map>

#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"
#include "Tests/OverStandIn/AppleFrameworks/UnicodeConversion.hpp"

namespace standin {
namespace {

/// An instance of one of the classes that stand for those of the Security framework.
struct Instance {
  CFRuntimeBase base;
  SecurityObject* object;
};

void finalize(CFTypeRef instance) { delete static_cast<const Instance*>(instance)->object; }

constexpr std::size_t classCount = std::variant_size_v<SecurityObject>;

CFRuntimeClass securityClass(const char* name) {
  CFRuntimeClass described{};
  described.className = name;
  described.finalize = finalize;
  return described;
}

const std::array<CFTypeID, classCount>& typeIdentifiers() {
  static const std::array<CFRuntimeClass, classCount> classes = {
      securityClass("SecIdentity"),
      securityClass("SecCertificate"),
      securityClass("SecKey"),
      securityClass("SecKeychain"),
      securityClass("SecAccess"),
      securityClass("SecACL"),
      securityClass("SecTrustedApplication")};
  static const std::array<CFTypeID, classCount> identifiers = [] {
    std::array<CFTypeID, classCount> registered{};
    std::transform(classes.begin(), classes.end(), registered.begin(),
                   [](const CFRuntimeClass& one) { return _CFRuntimeRegisterClass(&one); });
    return registered;
  }();
  return identifiers;
}

CFStringRef makeText(const Text& text) {
  return CFStringCreateWithCharacters(nullptr, reinterpret_cast<const UniChar*>(text.data()),
                                      static_cast<CFIndex>(text.size()));
}

CFTypeRef make(const Value& value);

struct Maker {
  CFTypeRef operator()(const Text& text) const { return makeText(text); }
  CFTypeRef operator()(double number) const {
    return CFNumberCreate(nullptr, kCFNumberDoubleType, &number);
  }
  CFTypeRef operator()(bool value) const {
    return CFRetain(value ? kCFBooleanTrue : kCFBooleanFalse);
  }
  CFTypeRef operator()(Date date) const { return CFDateCreate(nullptr, date.seconds); }
  CFTypeRef operator()(const Bytes& bytes) const {
    return CFDataCreate(nullptr, bytes.data(), static_cast<CFIndex>(bytes.size()));
  }
  CFTypeRef operator()(const List& list) const {
    CFMutableArrayRef array = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
    for (const Value& element : list) {
      const CFTypeRef made = make(element);
      CFArrayAppendValue(array, made);
      CFRelease(made);
    }
    return array;
  }
  CFTypeRef operator()(const Dictionary& dictionary) const {
    CFMutableDictionaryRef object = CFDictionaryCreateMutable(
        nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    for (const auto& [key, value] : dictionary) {
      const CFTypeRef madeKey = makeText(key);
      const CFTypeRef madeValue = make(value);
      CFDictionarySetValue(object, madeKey, madeValue);
      CFRelease(madeKey);
      CFRelease(madeValue);
    }
    return object;
  }
};

CFTypeRef make(const Value& value) { return std::visit(Maker(), value.content); }

void requireType(CFTypeRef object, CFTypeID type, const char* function) {
  if (object == nullptr || CFGetTypeID(object) != type) {
    refuse(function,
           object == nullptr ? "null in the place of an object" : "an object of the wrong type");
  }
}

bool isSecurityObject(CFTypeRef object) {
  const auto& identifiers = typeIdentifiers();
  return std::find(identifiers.begin(), identifiers.end(), CFGetTypeID(object)) !=
         identifiers.end();
}

std::string describedDictionary(CFDictionaryRef dictionary, const char* function) {
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
  std::vector<const void*> keys(count);
  std::vector<const void*> values(count);
  CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
  std::map<std::string, std::string> entries;
  for (std::size_t index = 0; index < count; ++index) {
    entries.emplace(described(keys[index], function), described(values[index], function));
  }
  std::string list;
  for (const auto& [key, value] : entries) {
    list += (list.empty() ? "" : ", ") + key + ": " + value;
  }
  return "{" + list + "}";
}

}  // namespace

CFTypeRef create(SecurityObject object) {
  const CFTypeID type = securityTypeIdentifier(object.index());
  auto* const instance = static_cast<Instance*>(const_cast<void*>(
      _CFRuntimeCreateInstance(nullptr, type, sizeof(Instance) - sizeof(CFRuntimeBase), nullptr)));
  instance->object = new SecurityObject(std::move(object));
  return instance;
}

CFTypeRef create(const Value& value) { return make(value); }

CFTypeRef createArray(const std::vector<CFTypeRef>& elements) {
  CFMutableArrayRef array = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
  for (const CFTypeRef element : elements) {
    CFArrayAppendValue(array, element);
    release(element, __func__);
  }
  return array;
}

CFStringRef constantText(const char* name) {
  return CFStringCreateWithCString(nullptr, name, kCFStringEncodingUTF8);
}

void retain(CFTypeRef object, const char*) { CFRetain(object); }

void release(CFTypeRef object, const char*) { CFRelease(object); }

SecurityObject& securityObject(CFTypeRef object, const char* function) {
  if (object == nullptr || !isSecurityObject(object)) {
    refuse(function,
           object == nullptr ? "null in the place of an object" : "an object of the wrong type");
  }
  return *static_cast<const Instance*>(object)->object;
}

CFTypeID securityTypeIdentifier(std::size_t index) { return typeIdentifiers().at(index); }

Text textOf(CFTypeRef text, const char* function) {
  requireType(text, CFStringGetTypeID(), function);
  const auto string = static_cast<CFStringRef>(text);
  Text content(static_cast<std::size_t>(CFStringGetLength(string)), u'\0');
  CFStringGetCharacters(string, CFRangeMake(0, CFStringGetLength(string)),
                        reinterpret_cast<UniChar*>(content.data()));
  return content;
}

std::vector<CFTypeRef> elementsOf(CFTypeRef array, const char* function) {
  requireType(array, CFArrayGetTypeID(), function);
  const auto list = static_cast<CFArrayRef>(array);
  std::vector<CFTypeRef> elements(static_cast<std::size_t>(CFArrayGetCount(list)));
  CFArrayGetValues(list, CFRangeMake(0, CFArrayGetCount(list)), elements.data());
  return elements;
}

Value valueOf(CFTypeRef object, const char* function) {
  if (object != nullptr && CFGetTypeID(object) == CFStringGetTypeID()) {
    return {textOf(object, function)};
  }
  List list;
  for (const CFTypeRef element : elementsOf(object, function)) {
    list.push_back(valueOf(element, function));
  }
  return {std::move(list)};
}

std::string described(CFTypeRef object, const char* function) {
  if (object == nullptr) {
    return "null";
  }
  if (isSecurityObject(object)) {
    return described(securityObject(object, function));
  }
  const CFTypeID type = CFGetTypeID(object);
  if (type == CFStringGetTypeID()) {
    return toUTF8(textOf(object, function)).text;
  }
  if (type == CFBooleanGetTypeID()) {
    return object == kCFBooleanTrue ? "true" : "false";
  }
  if (type == CFLocaleGetTypeID()) {
    return "locale";
  }
  if (type == CFDictionaryGetTypeID()) {
    return describedDictionary(static_cast<CFDictionaryRef>(object), function);
  }
  if (type != CFArrayGetTypeID()) {
    return "value";
  }
  std::string list;
  for (const CFTypeRef element : elementsOf(object, function)) {
    list += (list.empty() ? "" : ", ") + described(element, function);
  }
  return "[" + list + "]";
}

// The library does not count its objects. The leak sanitizer notices those that are left.
std::size_t liveObjects() { return 0; }

void forgetEveryObject() {}

}  // namespace standin
