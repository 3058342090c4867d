// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <Security/Security.h>

#include <vector>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"

namespace lumaret {

struct MatchingIdentities {
  /// Success also if there are none; errSecInternalComponent if the call succeeded with neither an
  /// identity nor an array.
  OSStatus status = errSecSuccess;
  std::vector<CoreFoundationReference<SecIdentityRef>> identities;
  /// False if the call succeeded with null, or with an array that has other elements, too.
  bool hasOnlyIdentities = true;
};

/// Asks for every identity of the current user, in every keychain that is searched by default.
MatchingIdentities copyMatchingIdentities();

}  // namespace lumaret
