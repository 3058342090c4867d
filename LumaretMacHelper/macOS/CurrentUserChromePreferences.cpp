// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>

#include "LumaretMacHelper/PlatformServices.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "LumaretMacHelper/macOS/MandatoryRules.hpp"

namespace lumaret {
namespace {

CoreFoundationReference<CFStringRef> key() { return coreFoundationText(rulesPolicy); }

CoreFoundationReference<CFStringRef> application() { return coreFoundationText(chromeIdentifier); }

std::vector<std::string> rulesIn(CFPropertyListRef value) {
  const auto* array = objectAs<CFArrayRef>(value, ::CFArrayGetTypeID());
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

}  // namespace

ChromeCertificatePolicyService::ChromeCertificatePolicyService()
    : ChromeCertificatePolicyService(std::make_shared<CurrentUserChromePreferences>()) {}

std::vector<std::string> CurrentUserChromePreferences::readRules() const {
  const auto value = CoreFoundationReference<CFPropertyListRef>::adopt(::CFPreferencesCopyValue(
      key().get(), application().get(), kCFPreferencesCurrentUser, kCFPreferencesAnyHost));
  return value ? rulesIn(value.get()) : std::vector<std::string>();
}

void CurrentUserChromePreferences::writeRules(const std::vector<std::string>& rules) {
  std::vector<CoreFoundationReference<CFStringRef>> texts;
  texts.reserve(rules.size());
  for (const std::string& rule : rules) {
    texts.push_back(coreFoundationText(rule));
  }
  const auto array = coreFoundationArray(texts);
  // Null removes the value.
  ::CFPreferencesSetValue(key().get(), rules.empty() ? nullptr : array.get(), application().get(),
                          kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
}

bool CurrentUserChromePreferences::synchronize() {
  return ::CFPreferencesSynchronize(application().get(), kCFPreferencesCurrentUser,
                                    kCFPreferencesAnyHost) != 0;
}

std::optional<std::vector<std::string>> mandatoryRules() {
  if (::CFPreferencesAppValueIsForced(key().get(), application().get()) == 0) {
    return std::nullopt;
  }
  const auto value = CoreFoundationReference<CFPropertyListRef>::adopt(
      ::CFPreferencesCopyAppValue(key().get(), application().get()));
  return rulesIn(value.get());
}

}  // namespace lumaret
