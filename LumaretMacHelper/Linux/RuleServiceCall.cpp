// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/RuleServiceCall.hpp"

#include "LumaretMacHelper/POSIX/Process.hpp"

namespace lumaret {

bool callRuleService(const std::vector<std::string>& method, const std::string& interfaceName) {
  std::vector<std::string> words = method;
  words.insert(words.begin(), {"--pdeathsig", "KILL", "/usr/bin/busctl", "--system",
                               "--allow-interactive-authorization=yes", "--timeout=300", "call",
                               ruleService::busName, ruleService::objectPath, interfaceName});
  return runUnseen("/usr/bin/setpriv", words) == 0;
}

}  // namespace lumaret
