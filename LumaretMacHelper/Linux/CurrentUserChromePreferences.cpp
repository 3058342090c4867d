// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/ChromeInstallation.hpp"
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"
#include "LumaretMacHelper/Platform.hpp"

namespace lumaret {
namespace {

ManagedPolicyFolder policies() {
  return ManagedPolicyFolder(ChromeInstallation::current().managedPolicies);
}

}  // namespace

ChromeCertificatePolicyService::ChromeCertificatePolicyService()
    : ChromeCertificatePolicyService(std::make_shared<CurrentUserChromePreferences>()) {}

std::vector<std::string> CurrentUserChromePreferences::readRules() const {
  return policies().readRules();
}

void CurrentUserChromePreferences::writeRules(const std::vector<std::string>& rules) {
  policies().writeRules(rules);
}

bool CurrentUserChromePreferences::synchronize() { return policies().synchronize(); }

}  // namespace lumaret
