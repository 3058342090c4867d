// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace lumaret {

/// Whether at least one running application of the current user has this bundle identifier.
bool hasRunningApplication(const std::string& bundleIdentifier);

}  // namespace lumaret
