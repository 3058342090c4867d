// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/macOS/RunningApplications.hpp"

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"

namespace lumaret {

// Replaces the only file that calls AppKit.
bool hasRunningApplication(const std::string& bundleIdentifier) {
  const standin::Call call("NSRunningApplication", bundleIdentifier);
  return standin::machine().runningApplications.contains(bundleIdentifier);
}

}  // namespace lumaret
