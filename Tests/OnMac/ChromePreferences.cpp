// SPDX-License-Identifier: Apache-2.0
#include "Tests/OnMac/ChromePreferences.hpp"

#include <CoreFoundation/CoreFoundation.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "LumaretMacHelper/macOS/CoreFoundationReference.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/OnMac/TestKeychain.hpp"
#include "Tests/Support/Cpp/FreshIdentity.hpp"

namespace lumaret::tests {
namespace {

using Value = CoreFoundationReference<CFPropertyListRef>;

const CFStringRef application = CFSTR("com.google.Chrome");
const CFStringRef key = CFSTR("AutoSelectCertificateForUrls");

/// Without a value, removes the preference.
void setValue(const Value& value) {
  ::CFPreferencesSetValue(key, value.get(), application, kCFPreferencesCurrentUser,
                          kCFPreferencesAnyHost);
  if (::CFPreferencesSynchronize(application, kCFPreferencesCurrentUser, kCFPreferencesAnyHost) ==
      0) {
    throw std::runtime_error("CFPreferencesSynchronize failed");
  }
}

/// Converts the types that the suite stores: strings, integers, Booleans, lists, and an empty
/// object.
Value valueOf(const nlohmann::json& json) {
  if (json.is_string()) {
    return Value::retain(coreFoundationText(json).get());
  }
  if (json.is_boolean()) {
    return Value::retain(json.get<bool>() ? kCFBooleanTrue : kCFBooleanFalse);
  }
  if (json.is_number_integer()) {
    const auto number = json.get<std::int64_t>();
    return Value::adopt(::CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &number));
  }
  if (json.is_array()) {
    std::vector<Value> elements;
    for (const nlohmann::json& element : json) {
      elements.push_back(valueOf(element));
    }
    return Value::retain(coreFoundationArray(elements).get());
  }
  if (json.is_object() && json.empty()) {
    return Value::adopt(::CFDictionaryCreate(kCFAllocatorDefault, nullptr, nullptr, 0,
                                             &kCFTypeDictionaryKeyCallBacks,
                                             &kCFTypeDictionaryValueCallBacks));
  }
  throw std::invalid_argument("no preference for " + json.dump());
}

nlohmann::json jsonOf(CFTypeRef value) {
  if (const auto* text = objectAs<CFStringRef>(value, ::CFStringGetTypeID())) {
    return utf8Text(text).value();
  }
  if (const auto* truth = objectAs<CFBooleanRef>(value, ::CFBooleanGetTypeID())) {
    return ::CFBooleanGetValue(truth) != 0;
  }
  if (const auto* number = objectAs<CFNumberRef>(value, ::CFNumberGetTypeID())) {
    std::int64_t integer = 0;
    ::CFNumberGetValue(number, kCFNumberSInt64Type, &integer);
    return integer;
  }
  if (const auto* array = objectAs<CFArrayRef>(value, ::CFArrayGetTypeID())) {
    nlohmann::json list = nlohmann::json::array();
    for (const CFTypeRef element : elements(array)) {
      list.push_back(jsonOf(element));
    }
    return list;
  }
  if (const auto* dictionary = objectAs<CFDictionaryRef>(value, ::CFDictionaryGetTypeID());
      dictionary != nullptr && ::CFDictionaryGetCount(dictionary) == 0) {
    return nlohmann::json::object();
  }
  throw std::runtime_error("a preference of a type that no test stored");
}

}  // namespace

ChromePreferences::ChromePreferences() {
  (void)testKeychainFolder();
  if (stored()) {
    throw std::runtime_error(
        "This user has a value for AutoSelectCertificateForUrls of com.google.Chrome, which these "
        "tests would lose. Remove it with `defaults delete`, if it may go.");
  }
}

ChromePreferences::~ChromePreferences() {
  try {
    setValue({});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "A preference of Chrome was not removed: %s\n", error.what());
  }
}

void ChromePreferences::store(const nlohmann::json& value) { setValue(valueOf(value)); }

std::optional<nlohmann::json> ChromePreferences::stored() const {
  const std::string file = shell("/usr/bin/defaults export com.google.Chrome -");
  const auto data = CoreFoundationReference<CFDataRef>::adopt(
      ::CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(file.data()),
                     static_cast<CFIndex>(file.size())));
  const auto list = Value::adopt(::CFPropertyListCreateWithData(
      kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, nullptr, nullptr));
  const auto* preferences = objectAs<CFDictionaryRef>(list.get(), ::CFDictionaryGetTypeID());
  if (preferences == nullptr) {
    throw std::runtime_error("defaults export: " + file);
  }
  const void* value = ::CFDictionaryGetValue(preferences, key);
  return value == nullptr ? std::nullopt : std::optional(jsonOf(value));
}

}  // namespace lumaret::tests
