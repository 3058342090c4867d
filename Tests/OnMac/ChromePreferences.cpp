// SPDX-License-Identifier: Apache-2.0
#include "Tests/OnMac/ChromePreferences.hpp"

#include <CoreFoundation/CoreFoundation.h>

#include <stdexcept>
#include <string>

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

Value parsed(const std::string& propertyList) {
  const auto data = CoreFoundationReference<CFDataRef>::adopt(
      ::CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(propertyList.data()),
                     static_cast<CFIndex>(propertyList.size())));
  auto value = Value::adopt(::CFPropertyListCreateWithData(
      kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, nullptr, nullptr));
  if (!value) {
    throw std::runtime_error("not a property list: " + propertyList);
  }
  return value;
}

/// Converts the types that the suite stores: strings, integers, true, lists, and an empty object.
std::string element(const nlohmann::json& json) {
  if (json.is_array()) {
    std::string list;
    for (const nlohmann::json& member : json) {
      list += element(member);
    }
    return "<array>" + list + "</array>";
  }
  return json.is_string()    ? "<string><![CDATA[" + json.get<std::string>() + "]]></string>"
         : json.is_number()  ? "<integer>" + json.dump() + "</integer>"
         : json.is_boolean() ? "<true/>"
                             : "<dict/>";
}

nlohmann::json jsonOf(CFTypeRef value) {
  if (const auto* text = objectAs<CFStringRef>(value, ::CFStringGetTypeID())) {
    return utf8Text(text).value();
  }
  if (const auto* array = objectAs<CFArrayRef>(value, ::CFArrayGetTypeID())) {
    nlohmann::json list = nlohmann::json::array();
    for (const CFTypeRef member : elements(array)) {
      list.push_back(jsonOf(member));
    }
    return list;
  }
  if (const auto* number = objectAs<CFNumberRef>(value, ::CFNumberGetTypeID())) {
    std::int64_t integer = 0;
    ::CFNumberGetValue(number, kCFNumberSInt64Type, &integer);
    return integer;
  }
  return value == kCFBooleanTrue ? nlohmann::json(true) : nlohmann::json::object();
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

void ChromePreferences::store(const nlohmann::json& value) {
  setValue(parsed("<plist>" + element(value) + "</plist>"));
}

std::optional<nlohmann::json> ChromePreferences::stored() const {
  const Value all = parsed(shell("/usr/bin/defaults export com.google.Chrome -"));
  const void* value = ::CFDictionaryGetValue(static_cast<CFDictionaryRef>(all.get()), key);
  return value == nullptr ? std::nullopt : std::optional(jsonOf(value));
}

}  // namespace lumaret::tests
