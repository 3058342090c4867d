// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace lumaret {

/// The rules that an administrator forces upon Chrome, if there are any. Chrome then ignores the
/// current user's. Throws ChromePreferencesError.
std::optional<std::vector<std::string>> mandatoryRules();

}  // namespace lumaret
