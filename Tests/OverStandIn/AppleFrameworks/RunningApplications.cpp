// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/macOS/RunningApplications.hpp"

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"

namespace lumaret {

// In the place of the one file that asks AppKit.
bool hasRunningApplication(const std::string& bundleIdentifier) {
  const standin::Call call("NSRunningApplication", bundleIdentifier);
  return standin::machine().runningApplications.contains(bundleIdentifier);
}

}  // namespace lumaret
