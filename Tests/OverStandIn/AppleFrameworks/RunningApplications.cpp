// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/macOS/RunningApplications.hpp"

#include <algorithm>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"

namespace lumaret {

// Replaces the only file that calls AppKit.
bool hasRunningApplication(const std::string& bundleIdentifier) {
  const standin::Call call(bundleIdentifier, "NSRunningApplication");
  const auto& running = standin::machine()["runningApplications"];
  return std::find(running.begin(), running.end(), bundleIdentifier) != running.end();
}

}  // namespace lumaret
