// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/macOS/RunningApplications.hpp"

#import <AppKit/AppKit.h>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"

namespace lumaret {

bool hasRunningApplication(const std::string& bundleIdentifier) {
  @autoreleasepool {
    const auto identifier = coreFoundationText(bundleIdentifier);
    return [NSRunningApplication
               runningApplicationsWithBundleIdentifier:(__bridge NSString*)identifier.get()]
               .count > 0;
  }
}

}  // namespace lumaret
