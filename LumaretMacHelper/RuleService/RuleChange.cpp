// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/RuleService/RuleChange.hpp"

#include <stdexcept>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/Linux/ChromeInstallation.hpp"
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"
#include "LumaretMacHelper/POSIX/SystemCalls.hpp"

namespace lumaret {

RuleChange::RuleChange(std::string_view browser, std::optional<std::string_view> rule) {
  const auto folder = ChromeInstallation::managedPoliciesOf(browser);
  if (!folder) {
    throw std::invalid_argument("The browser must be Google Chrome or Chromium.");
  }
  if (rule && rule->size() > longestRule) {
    throw std::invalid_argument("The rule is longer than 64 KiB.");
  }
  browser_ = browser;
  managedPolicies_ = *folder;
  rule_ = rule;
  if (rule_ && !ChromeCertificatePolicyService::isEncodedRule(*rule_)) {
    throw std::invalid_argument("The rule is not one that lumaret-macos-helper writes.");
  }
}

void RuleChange::carryOut() const {
  const FileDescriptor turn = ManagedPolicyFolder::takeTurn();
  const ManagedPolicyFolder folder(managedPolicies_);
  if (rule_) {
    folder.writeRules(ChromeCertificatePolicyService::replacingRule(*rule_, folder.readRules()));
  } else if (!folder.withdrawRule()) {
    return;
  }
  require(folder.synchronize(), std::errc::io_error, managedPolicies_.c_str());
}

std::string RuleChange::description() const {
  return (rule_ ? "stored the rule of " : "cleared the rule of ") + browser_;
}

}  // namespace lumaret
