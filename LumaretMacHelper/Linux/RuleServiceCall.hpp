// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "LumaretMacHelper/RuleService/Address.hpp"

namespace lumaret {

/// Calls a method of the rule service; after its name come the types of its arguments and these.
/// polkit may show the user a dialog, which closes when busctl ends: after five minutes, or
/// together with this process. Returns whether the call succeeded.
bool callRuleService(const std::vector<std::string>& method,
                     const std::string& interfaceName = ruleService::interfaceName);

}  // namespace lumaret
