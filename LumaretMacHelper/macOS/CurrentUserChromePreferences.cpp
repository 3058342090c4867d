// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>

#include <stdexcept>

#include "LumaretMacHelper/PlatformServices.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"

namespace lumaret {
namespace {

CoreFoundationReference<CFStringRef> key() { return coreFoundationText(rulesPolicy); }

CoreFoundationReference<CFStringRef> application() { return coreFoundationText(chromeIdentifier); }

std::string preferenceName() { return std::string(chromeIdentifier) + " " + rulesPolicy; }

ChromePreferencesError notAList() {
  return ChromePreferencesError(preferenceName() + " is not a list of strings.");
}

std::vector<std::string> rulesIn(CFPropertyListRef value) {
  const auto* array = objectAs<CFArrayRef>(value, ::CFArrayGetTypeID());
  if (array == nullptr) {
    throw notAList();
  }
  std::vector<std::string> rules;
  for (const CFTypeRef element : elements(array)) {
    const auto* text = objectAs<CFStringRef>(element, ::CFStringGetTypeID());
    auto rule = text != nullptr ? utf8Text(text) : std::nullopt;
    // A string without a UTF-8 form could not be written back unchanged.
    if (!rule) {
      throw notAList();
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

std::vector<RuleSource> ruleSources() {
  std::vector<RuleSource> sources;
  if (auto rules = CurrentUserChromePreferences().readRules(); !rules.empty()) {
    sources.push_back({preferenceName(), 0, std::move(rules)});
  }
  // Chrome then ignores the current user's.
  if (::CFPreferencesAppValueIsForced(key().get(), application().get()) != 0) {
    const auto value = CoreFoundationReference<CFPropertyListRef>::adopt(
        ::CFPreferencesCopyAppValue(key().get(), application().get()));
    sources.push_back({"the mandatory " + preferenceName(), 1, rulesIn(value.get())});
  }
  return sources;
}

void withdrawRule() {
  CurrentUserChromePreferences preferences;
  preferences.writeRules(
      ChromeCertificatePolicyService::withdrawingRule(preferences.readRules(), {}));
  if (!preferences.synchronize()) {
    throw std::runtime_error(preferenceName());
  }
}

}  // namespace lumaret
