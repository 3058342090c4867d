// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <Security/Security.h>

#include "LumaretMacHelper/macOS/CoreFoundationReference.hpp"

namespace lumaret {

/// After success, the result is an identity, an array, or nothing.
struct MatchingIdentities {
  OSStatus status = errSecSuccess;
  CoreFoundationReference<CFTypeRef> result;
};

/// Asks for every identity of the current user, in every keychain that is searched by default.
MatchingIdentities copyMatchingIdentities();

}  // namespace lumaret
