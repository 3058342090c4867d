// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <Security/Security.h>

#include <string>

#include "LumaretMacHelper/macOS/CoreFoundationReference.hpp"
#include "Tests/Support/Cpp/FreshIdentity.hpp"

namespace lumaret::tests {

/// Throws a std::runtime_error with the call and the status, unless the status is success.
void require(OSStatus status, const std::string& call);

/// An access list with which any application may sign.
CoreFoundationReference<SecAccessRef> accessForAnyApplication();

/// Who may change the access list of a key.
enum class Owner {
  asksTheUser,    ///< Only with the user's consent, as after an import by a person.
  anyApplication  ///< Without asking anybody.
};

/// An access list with two entries for signing, each with one application, which is not Chrome.
/// `security import` makes one entry, however many applications it is given.
CoreFoundationReference<SecAccessRef> accessWithTwoSigningEntries(Owner owner);

/// Puts the bundle's key, under this access list, and its certificate into the keychain.
void importIdentity(SecKeychainRef keychain, const std::filesystem::path& bundle,
                    SecAccessRef access);

}  // namespace lumaret::tests
