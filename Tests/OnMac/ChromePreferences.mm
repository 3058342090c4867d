// SPDX-License-Identifier: Apache-2.0
#include "Tests/OnMac/ChromePreferences.hpp"

#import <Foundation/Foundation.h>

#include <stdexcept>
#include <string>

#include "Tests/OnMac/TestKeychain.hpp"
#include "Tests/Support/Cpp/FreshIdentity.hpp"

namespace lumaret::tests {
namespace {

NSString* const key = @"AutoSelectCertificateForUrls";

NSData* data(const std::string& text) {
  return [NSData dataWithBytes:text.data() length:text.size()];
}

/// Without a value, removes the preference.
void setValue(id value) {
  const CFStringRef application = CFSTR("com.google.Chrome");
  ::CFPreferencesSetValue((__bridge CFStringRef)key, (__bridge CFPropertyListRef)value, application,
                          kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
  ::CFPreferencesSynchronize(application, kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
}

}  // namespace

ChromePreferences::ChromePreferences() {
  requirePermission();
  if (stored()) {
    throw std::runtime_error(
        "This user has a value for AutoSelectCertificateForUrls of com.google.Chrome, which these "
        "tests would lose. Remove it with `defaults delete`, if it may go.");
  }
}

ChromePreferences::~ChromePreferences() { setValue(nil); }

// Foundation's JSON is a list or an object, so the value is put into a list.
void ChromePreferences::store(const nlohmann::json& value) {
  NSArray* list = [NSJSONSerialization JSONObjectWithData:data("[" + value.dump() + "]")
                                                  options:0
                                                    error:nil];
  setValue(list.firstObject);
}

std::optional<nlohmann::json> ChromePreferences::stored() const {
  NSDictionary* all = [NSPropertyListSerialization
      propertyListWithData:data(shell("/usr/bin/defaults export com.google.Chrome -"))
                   options:NSPropertyListImmutable
                    format:nil
                     error:nil];
  if (all == nil) {
    throw std::runtime_error("The preferences of com.google.Chrome cannot be read.");
  }
  if (all[key] == nil) {
    return std::nullopt;
  }
  NSData* list = [NSJSONSerialization dataWithJSONObject:@[ all[key] ] options:0 error:nil];
  const auto* bytes = static_cast<const char*>(list.bytes);
  return nlohmann::json::parse(bytes, bytes + list.length)[0];
}

}  // namespace lumaret::tests
