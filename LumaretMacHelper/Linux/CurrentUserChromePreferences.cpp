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

/// After the method's name come the types of its arguments and these. polkit may show the user a
/// dialog, which closes when busctl ends: after five minutes, or together with this process.
void callRuleService(const std::vector<std::string>& method) {
  std::vector<std::string> words = {"--pdeathsig",
                                    "KILL",
                                    "/usr/bin/busctl",
                                    "--system",
                                    "--allow-interactive-authorization=yes",
                                    "--timeout=300",
                                    "call",
                                    ruleService::busName,
                                    ruleService::objectPath,
                                    ruleService::interfaceName};
  words.insert(words.end(), method.begin(), method.end());
  require(runUnseen("/usr/bin/setpriv", words) == 0, std::errc::permission_denied, "rule service");
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
  const std::string browser(ChromeInstallation::current().name);
  require(rule != rules.end(), std::errc::permission_denied, "rule service");
  callRuleService({ruleService::storeRule, "ss", browser, *rule});
}

bool CurrentUserChromePreferences::synchronize() { return policies().synchronize(); }

std::vector<RuleSource> ruleSources() {
  const auto ownFile =
      ChromeInstallation::current().managedPolicies / ManagedPolicyFolder::ownFileName;
  std::vector<RuleSource> sources;
  for (auto& [file, rules] : policies().readRulesByFile()) {
    sources.push_back({file, file.compare(ownFile), std::move(rules)});
  }
  return sources;
}

void withdrawRule() {
  if (!isRoot()) {
    const std::string browser(ChromeInstallation::current().name);
    callRuleService({ruleService::clearRule, "s", browser});
    return;
  }
  const FileDescriptor turn = ManagedPolicyFolder::takeTurn();
  require(!policies().withdrawRule() || policies().synchronize(), std::errc::io_error, "rules");
}

}  // namespace lumaret
