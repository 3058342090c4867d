// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace lumaret {

/// Whether the current user runs an application with this bundle identifier.
bool hasRunningApplication(const std::string& bundleIdentifier);

}  // namespace lumaret
