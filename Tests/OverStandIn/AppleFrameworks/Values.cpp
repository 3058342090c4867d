// SPDX-License-Identifier: Apache-2.0
#include <unicode/ustring.h>

#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"

namespace standin {
namespace {

template <typename Read>
std::optional<std::u16string> converted(std::string_view text, Read read) {
  std::u16string result(text.size(), u'\0');
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  read(result.data(), static_cast<int32_t>(result.size()), &length, text.data(),
       static_cast<int32_t>(text.size()), &status);
  result.resize(static_cast<std::size_t>(length));
  return U_SUCCESS(status) != 0 ? std::optional(result) : std::nullopt;
}

CFTypeRef createDictionary(const json& members) {
  std::vector<CFTypeRef> keys;
  std::vector<CFTypeRef> values;
  for (const auto& [key, value] : members.items()) {
    keys.push_back(create(json(key)));
    values.push_back(create(value));
  }
  const CFTypeRef dictionary =
      CFDictionaryCreate(nullptr, keys.data(), values.data(), static_cast<CFIndex>(keys.size()),
                         &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  std::ranges::for_each(keys, CFRelease);
  std::ranges::for_each(values, CFRelease);
  return dictionary;
}

}  // namespace

std::optional<std::u16string> fromUTF8(std::string_view text) {
  return converted(text, u_strFromUTF8);
}

CFStringRef createText(std::u16string_view text) {
  return CFStringCreateWithCharacters(nullptr, reinterpret_cast<const UniChar*>(text.data()),
                                      static_cast<CFIndex>(text.size()));
}

CFTypeRef createArray(const std::vector<CFTypeRef>& elements) {
  auto borrowed = elements;
  const CFTypeRef array = CFArrayCreate(
      nullptr, borrowed.data(), static_cast<CFIndex>(borrowed.size()), &kCFTypeArrayCallBacks);
  std::ranges::for_each(elements, CFRelease);
  return array;
}

CFTypeRef create(const json& value) {
  if (value.is_null()) {
    return nullptr;
  }
  if (value.is_string()) {
    // Also reads lone surrogates.
    return createText(*converted(value.get_ref<const std::string&>(), u_strFromUTF8Lenient));
  }
  if (value.is_boolean()) {
    return value.get<bool>() ? CFRetain(kCFBooleanTrue) : nullptr;
  }
  if (value.is_number()) {
    const auto number = value.get<double>();
    return CFNumberCreate(nullptr, kCFNumberDoubleType, &number);
  }
  if (value.is_binary()) {
    const auto& bytes = value.get_binary();
    return CFDataCreate(nullptr, bytes.data(), static_cast<CFIndex>(bytes.size()));
  }
  if (value.is_array()) {
    std::vector<CFTypeRef> elements;
    for (const json& element : value) {
      elements.push_back(create(element));
    }
    return createArray(elements);
  }
  if (value.contains("data")) {
    return create(json::binary(value["data"]));
  }
  return value.contains("date") ? CFDateCreate(nullptr, value["date"]) : createDictionary(value);
}

std::optional<std::string> textOf(CFStringRef text) {
  const CFIndex length = CFStringGetLength(text);
  std::string bytes(static_cast<std::size_t>(length) * 3, '\0');  // No unit takes more bytes.
  CFIndex size = 0;
  const CFIndex converted = CFStringGetBytes(text, CFRangeMake(0, length), kCFStringEncodingUTF8, 0,
                                             0, reinterpret_cast<UInt8*>(bytes.data()),
                                             static_cast<CFIndex>(bytes.size()), &size);
  bytes.resize(static_cast<std::size_t>(size));
  return converted == length ? std::optional(bytes) : std::nullopt;
}

std::vector<CFTypeRef> elementsOf(CFTypeRef array) {
  std::vector<CFTypeRef> elements;
  const CFIndex count = array == nullptr ? 0 : CFArrayGetCount(as<CFArrayRef>(array));
  for (CFIndex index = 0; index < count; ++index) {
    elements.push_back(CFArrayGetValueAtIndex(as<CFArrayRef>(array), index));
  }
  return elements;
}

json valueOf(CFTypeRef object) {
  if (CFGetTypeID(object) == CFStringGetTypeID()) {
    return textOf(as<CFStringRef>(object)).value();
  }
  json list = json::array();
  for (const CFTypeRef element : elementsOf(object)) {
    list.push_back(valueOf(element));
  }
  return list;
}

}  // namespace standin
