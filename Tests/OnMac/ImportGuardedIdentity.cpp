// SPDX-License-Identifier: Apache-2.0
// Imports a bundle so that its key has two entries for signing, each with one application, which
// is not Chrome. Nobody is asked before they change. `security import` makes only one entry.
//
//   ImportGuardedIdentity KEYCHAIN BUNDLE
//
// The keychain must be unlocked. The passphrase of the bundle is that of the tests.

#include <Security/Security.h>

#include <array>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <vector>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/OnMac/TestKeychain.hpp"
#include "Tests/Support/Cpp/FreshIdentity.hpp"

// Access lists have been deprecated since macOS 10.10, and nothing has replaced them.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace lumaret::tests {
namespace {

/// An application of the system that no test starts.
CoreFoundationReference<CFArrayRef> oneApplication(const char* path) {
  CoreFoundationReference<SecTrustedApplicationRef> application;
  require(::SecTrustedApplicationCreateFromPath(path, application.receive()),
          "SecTrustedApplicationCreateFromPath");
  return coreFoundationArray(std::vector{application});
}

CoreFoundationReference<SecAccessRef> accessWithTwoSigningEntries() {
  const auto description = coreFoundationText("Lumaret test key");
  CoreFoundationReference<SecAccessRef> access;
  require(::SecAccessCreate(description.get(), oneApplication("/usr/bin/codesign").get(),
                            access.receive()),
          "SecAccessCreate");
  CoreFoundationReference<SecACLRef> second;
  require(
      ::SecACLCreateWithSimpleContents(access.get(), oneApplication("/usr/bin/productsign").get(),
                                       description.get(), 0, second.receive()),
      "SecACLCreateWithSimpleContents");
  const auto signing = coreFoundationArray(
      std::vector{CoreFoundationReference<CFStringRef>::retain(kSecACLAuthorizationSign)});
  require(::SecACLUpdateAuthorizations(second.get(), signing.get()), "SecACLUpdateAuthorizations");
  const auto owners = CoreFoundationReference<CFArrayRef>::adopt(
      ::SecAccessCopyMatchingACLList(access.get(), kSecACLAuthorizationChangeACL));
  for (const CFTypeRef entry : owners ? elements(owners.get()) : std::vector<CFTypeRef>()) {
    require(::SecACLSetContents(objectAs<SecACLRef>(entry, ::SecACLGetTypeID()),
                                /*applicationList=*/nullptr, description.get(), 0),
            "SecACLSetContents");
  }
  return access;
}

void importIdentity(const char* keychainPath, const char* bundle) {
  CoreFoundationReference<SecKeychainRef> keychain;
  require(::SecKeychainOpen(keychainPath, keychain.receive()), "SecKeychainOpen");
  const auto access = accessWithTwoSigningEntries();
  const std::string file = readFile(bundle);
  const auto data = CoreFoundationReference<CFDataRef>::adopt(
      ::CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(file.data()),
                     static_cast<CFIndex>(file.size())));
  const auto passphrase = coreFoundationText(FreshIdentity::passphrase);
  std::array<const void*, 3> keys = {kSecImportExportPassphrase, kSecImportExportKeychain,
                                     kSecImportExportAccess};
  std::array<const void*, 3> values = {passphrase.get(), keychain.get(), access.get()};
  const auto options = CoreFoundationReference<CFDictionaryRef>::adopt(
      ::CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(), keys.size(),
                           &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CoreFoundationReference<CFArrayRef> imported;
  require(::SecPKCS12Import(data.get(), options.get(), imported.receive()), "SecPKCS12Import");
}

}  // namespace
}  // namespace lumaret::tests

int main(int argumentCount, char** arguments) {
  if (argumentCount != 3) {
    std::cerr << "ImportGuardedIdentity KEYCHAIN BUNDLE\n";
    return 2;
  }
  try {
    lumaret::tests::importIdentity(arguments[1], arguments[2]);
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return EXIT_FAILURE;
  }
}
