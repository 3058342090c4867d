// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <algorithm>

#include "LumaretMacHelper/Linux/ChromeInstallation.hpp"
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"
#include "LumaretMacHelper/Linux/RuleServiceCall.hpp"
#include "LumaretMacHelper/POSIX/SystemCalls.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"

namespace lumaret {
namespace {

ManagedPolicyFolder policies() {
  return ManagedPolicyFolder(ChromeInstallation::current().managedPolicies);
}

bool isRoot() { return ::geteuid() == 0; }

}  // namespace

ChromeCertificatePolicyService::ChromeCertificatePolicyService()
    : ChromeCertificatePolicyService(std::make_shared<CurrentUserChromePreferences>()) {}

std::vector<std::string> CurrentUserChromePreferences::readRules() const {
  if (isRoot() && !turn_) {
    turn_ = std::make_shared<FileDescriptor>(ManagedPolicyFolder::takeTurn());
  }
  return policies().readRules();
}

void CurrentUserChromePreferences::writeRules(const std::vector<std::string>& rules) {
  if (isRoot()) {
    policies().writeRules(rules);
    return;
  }
  // The service reads the rules in force itself. It is told only the new one.
  const auto rule =
      std::find_if(rules.begin(), rules.end(), ChromeCertificatePolicyService::isForEverySite);
  const std::string browser(ChromeInstallation::current().name);
  require(rule != rules.end() && callRuleService({ruleService::storeRule, "ss", browser, *rule}),
          std::errc::permission_denied, "rule service");
}

bool CurrentUserChromePreferences::synchronize() { return policies().synchronize(); }

}  // namespace lumaret
