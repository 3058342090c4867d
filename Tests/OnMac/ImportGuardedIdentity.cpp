// SPDX-License-Identifier: Apache-2.0
// Imports a bundle so that its key has two entries for signing, which `security import` cannot do.
//
//   ImportGuardedIdentity asking|open KEYCHAIN BUNDLE
//
// With "asking", changing the access list requires the user's consent. With "open", it does not.
// The keychain must be unlocked. The passphrase of the bundle is that of the tests.

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string_view>

#include "Tests/OnMac/KeychainItems.hpp"

// Deprecated, as in KeychainItems.cpp.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

int main(int argumentCount, char** arguments) {
  using namespace lumaret;
  using namespace lumaret::tests;
  const std::string_view owner = argumentCount == 4 ? arguments[1] : "";
  if (owner != "asking" && owner != "open") {
    std::cerr << "ImportGuardedIdentity asking|open KEYCHAIN BUNDLE\n";
    return 2;
  }
  try {
    CoreFoundationReference<SecKeychainRef> keychain;
    require(::SecKeychainOpen(arguments[2], keychain.receive()), "SecKeychainOpen");
    const auto access =
        accessWithTwoSigningEntries(owner == "open" ? Owner::anyApplication : Owner::asksTheUser);
    importIdentity(keychain.get(), arguments[3], access.get());
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return EXIT_FAILURE;
  }
}
