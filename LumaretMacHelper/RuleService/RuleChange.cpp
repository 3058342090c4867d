// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/RuleService/RuleChange.hpp"

#include <system_error>
#include <utility>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/Linux/ChromeInstallation.hpp"
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"

namespace lumaret {

RuleChange::RuleChange(std::string_view browser, std::optional<std::string> rule)
    : browser_(browser), rule_(std::move(rule)) {
  const auto folder = ChromeInstallation::managedPoliciesOf(browser);
  if (!folder) {
    throw InvalidArgument("The browser must be Google Chrome or Chromium.");
  }
  managedPolicies_ = *folder;
}

RuleChange RuleChange::storing(std::string_view browser, std::string_view rule) {
  if (rule.size() > longestRule) {
    throw InvalidArgument("The rule is longer than 64 KiB.");
  }
  std::string text(rule);
  if (!ChromeCertificatePolicyService::isEncodedRule(text)) {
    throw InvalidArgument("The rule is not one that lumaret-macos-helper writes.");
  }
  return {browser, std::move(text)};
}

RuleChange RuleChange::clearing(std::string_view browser) { return {browser, std::nullopt}; }

void RuleChange::carryOut() const {
  const FileDescriptor turn = ManagedPolicyFolder::takeTurn();
  const ManagedPolicyFolder folder(managedPolicies_);
  if (rule_) {
    folder.writeRules(ChromeCertificatePolicyService::replacingRule(*rule_, folder.readRules()));
  } else if (!folder.withdrawRule()) {
    return;
  }
  if (!folder.synchronize()) {
    throw std::system_error(std::make_error_code(std::errc::io_error), managedPolicies_.string());
  }
}

std::string RuleChange::description() const {
  return (rule_ ? "stored the rule of " : "cleared the rule of ") + browser_;
}

}  // namespace lumaret
