// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>

#include "LumaretMacHelper/PlatformServices.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"

namespace lumaret {
namespace {

CoreFoundationReference<CFStringRef> key() { return coreFoundationText(rulesPolicy); }

CoreFoundationReference<CFStringRef> application() { return coreFoundationText(chromeIdentifier); }

}  // namespace

ChromeCertificatePolicyService::ChromeCertificatePolicyService()
    : ChromeCertificatePolicyService(std::make_shared<CurrentUserChromePreferences>()) {}

std::vector<std::string> CurrentUserChromePreferences::readRules() const {
  const auto value = CoreFoundationReference<CFPropertyListRef>::adopt(::CFPreferencesCopyValue(
      key().get(), application().get(), kCFPreferencesCurrentUser, kCFPreferencesAnyHost));
  if (!value) {
    return {};
  }
  const auto* array = objectAs<CFArrayRef>(value.get(), ::CFArrayGetTypeID());
  if (array == nullptr) {
    throw ChromePreferencesError();
  }
  std::vector<std::string> rules;
  for (const CFTypeRef element : elements(array)) {
    const auto* text = objectAs<CFStringRef>(element, ::CFStringGetTypeID());
    auto rule = text != nullptr ? utf8Text(text) : std::nullopt;
    // A string without a UTF-8 form could not be written back unchanged.
    if (!rule) {
      throw ChromePreferencesError();
    }
    rules.push_back(*std::move(rule));
  }
  return rules;
}

void CurrentUserChromePreferences::writeRules(const std::vector<std::string>& rules) {
  std::vector<CoreFoundationReference<CFStringRef>> texts;
  texts.reserve(rules.size());
  for (const std::string& rule : rules) {
    texts.push_back(coreFoundationText(rule));
  }
  ::CFPreferencesSetValue(key().get(), coreFoundationArray(texts).get(), application().get(),
                          kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
}

bool CurrentUserChromePreferences::synchronize() {
  return ::CFPreferencesSynchronize(application().get(), kCFPreferencesCurrentUser,
                                    kCFPreferencesAnyHost) != 0;
}

}  // namespace lumaret
