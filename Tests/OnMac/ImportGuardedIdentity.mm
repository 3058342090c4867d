// SPDX-License-Identifier: Apache-2.0
// Imports a bundle so that its key has two entries for signing, each with one application, which
// is not Chrome. Nobody is asked before they change. `security import` makes only one entry.
//
//   ImportGuardedIdentity KEYCHAIN BUNDLE
//
// The keychain must be unlocked. The passphrase of the bundle is that of the tests.

#import <Foundation/Foundation.h>
#include <Security/Security.h>

#include <exception>
#include <iostream>
#include <vector>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/OnMac/Require.hpp"
#include "Tests/Support/Cpp/FreshIdentity.hpp"

// Access lists have been deprecated since macOS 10.10, and nothing has replaced them.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace lumaret::tests {
namespace {

const CFStringRef description = CFSTR("Lumaret test key");

/// An application of the system that no test starts.
CoreFoundationReference<CFArrayRef> oneApplication(const char* path) {
  CoreFoundationReference<SecTrustedApplicationRef> application;
  require(::SecTrustedApplicationCreateFromPath(path, application.receive()),
          "SecTrustedApplicationCreateFromPath");
  return coreFoundationArray(std::vector{application});
}

CoreFoundationReference<SecAccessRef> accessWithTwoSigningEntries() {
  CoreFoundationReference<SecAccessRef> access;
  require(
      ::SecAccessCreate(description, oneApplication("/usr/bin/codesign").get(), access.receive()),
      "SecAccessCreate");
  CoreFoundationReference<SecACLRef> second;
  require(
      ::SecACLCreateWithSimpleContents(access.get(), oneApplication("/usr/bin/productsign").get(),
                                       description, 0, second.receive()),
      "SecACLCreateWithSimpleContents");
  NSArray* signing = @[ (__bridge NSString*)kSecACLAuthorizationSign ];
  require(::SecACLUpdateAuthorizations(second.get(), (__bridge CFArrayRef)signing),
          "SecACLUpdateAuthorizations");
  const auto owners = CoreFoundationReference<CFArrayRef>::adopt(
      ::SecAccessCopyMatchingACLList(access.get(), kSecACLAuthorizationChangeACL));
  for (const CFTypeRef entry : owners ? elements(owners.get()) : std::vector<CFTypeRef>()) {
    require(::SecACLSetContents(objectAs<SecACLRef>(entry, ::SecACLGetTypeID()),
                                /*applicationList=*/nullptr, description, 0),
            "SecACLSetContents");
  }
  return access;
}

void importIdentity(const char* keychainPath, const char* bundle) {
  CoreFoundationReference<SecKeychainRef> keychain;
  require(::SecKeychainOpen(keychainPath, keychain.receive()), "SecKeychainOpen");
  const auto access = accessWithTwoSigningEntries();
  NSDictionary* options = @{
    (__bridge NSString*)kSecImportExportPassphrase : @(FreshIdentity::passphrase),
    (__bridge NSString*)kSecImportExportKeychain : (__bridge id)keychain.get(),
    (__bridge NSString*)kSecImportExportAccess : (__bridge id)access.get()
  };
  NSData* data = [NSData dataWithContentsOfFile:@(bundle)];
  CoreFoundationReference<CFArrayRef> imported;
  require(::SecPKCS12Import((__bridge CFDataRef)data, (__bridge CFDictionaryRef)options,
                            imported.receive()),
          "SecPKCS12Import");
}

}  // namespace
}  // namespace lumaret::tests

int main(int /*argumentCount*/, char** arguments) {
  try {
    lumaret::tests::importIdentity(arguments[1], arguments[2]);
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return EXIT_FAILURE;
  }
}
