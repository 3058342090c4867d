// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Where the rule service is found on the system bus.
namespace lumaret::ruleService {

inline constexpr const char* busName = "com.lumaret.MacHelper1";
inline constexpr const char* objectPath = "/com/lumaret/MacHelper1";
inline constexpr const char* interfaceName = "com.lumaret.MacHelper1";

/// StoreRule(s browser, s rule)
inline constexpr const char* storeRule = "StoreRule";
/// ClearRule(s browser)
inline constexpr const char* clearRule = "ClearRule";

/// The action by which polkit decides on both.
inline constexpr const char* action = "com.lumaret.mac-helper.change-rule";

}  // namespace lumaret::ruleService
