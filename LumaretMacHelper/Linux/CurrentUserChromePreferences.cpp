// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <algorithm>

#include "LumaretMacHelper/Linux/ChromeInstallation.hpp"
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"
#include "LumaretMacHelper/POSIX/Process.hpp"
#include "LumaretMacHelper/POSIX/SystemCalls.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "LumaretMacHelper/RuleService/Address.hpp"

namespace lumaret {
namespace {

ManagedPolicyFolder policies() {
  return ManagedPolicyFolder(ChromeInstallation::current().managedPolicies);
}

bool isRoot() { return ::geteuid() == 0; }

/// Has the rule service store the rule. polkit may show the user a dialog, which closes when
/// busctl ends: after five minutes, or together with this process.
void askRuleService(const std::string& rule) {
  const int status =
      runUnseen("/usr/bin/setpriv", {"--pdeathsig", "KILL", "/usr/bin/busctl", "--system",
                                     "--allow-interactive-authorization=yes", "--timeout=300",
                                     "call", ruleService::busName, ruleService::objectPath,
                                     ruleService::interfaceName, ruleService::storeRule, "ss",
                                     std::string(ChromeInstallation::current().name), rule});
  require(status == 0, std::errc::permission_denied, "rule service");
}

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
  require(rule != rules.end(), std::errc::operation_not_permitted,
          "rules without one for every site");
  askRuleService(*rule);
}

bool CurrentUserChromePreferences::synchronize() { return policies().synchronize(); }

}  // namespace lumaret
