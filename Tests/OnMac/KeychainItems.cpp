// SPDX-License-Identifier: Apache-2.0
#include "Tests/OnMac/KeychainItems.hpp"

#include <array>
#include <stdexcept>
#include <vector>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

// Access lists have been deprecated since macOS 10.10, and nothing has replaced them.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace lumaret::tests {
namespace {

using Access = CoreFoundationReference<SecAccessRef>;
using Applications = CoreFoundationReference<CFArrayRef>;

constexpr const char* description = "Lumaret test key";

Access accessFor(const Applications& applications) {
  Access access;
  require(::SecAccessCreate(coreFoundationText(description).get(), applications.get(),
                            access.receive()),
          "SecAccessCreate");
  return access;
}

/// An application of the system that no test starts.
Applications oneApplication(const char* path) {
  CoreFoundationReference<SecTrustedApplicationRef> application;
  require(::SecTrustedApplicationCreateFromPath(path, application.receive()),
          "SecTrustedApplicationCreateFromPath");
  return coreFoundationArray(std::vector{application});
}

/// Lets any application use the entries with this authorization.
void allowAnyApplication(const Access& access, CFStringRef authorization) {
  const auto entries =
      Applications::adopt(::SecAccessCopyMatchingACLList(access.get(), authorization));
  if (!entries) {
    throw std::runtime_error("SecAccessCopyMatchingACLList: no entry");
  }
  for (const CFTypeRef entry : elements(entries.get())) {
    require(::SecACLSetContents(objectAs<SecACLRef>(entry, ::SecACLGetTypeID()), nullptr,
                                coreFoundationText(description).get(), 0),
            "SecACLSetContents");
  }
}

}  // namespace

void require(OSStatus status, const std::string& call) {
  if (status != errSecSuccess) {
    throw std::runtime_error(call + ": " + std::to_string(status));
  }
}

Access accessForAnyApplication() {
  Access access = accessFor(oneApplication("/usr/bin/codesign"));
  allowAnyApplication(access, kSecACLAuthorizationSign);
  return access;
}

Access accessWithTwoSigningEntries(Owner owner) {
  Access access = accessFor(oneApplication("/usr/bin/codesign"));
  CoreFoundationReference<SecACLRef> second;
  require(::SecACLCreateWithSimpleContents(
              access.get(), oneApplication("/usr/bin/productsign").get(),
              coreFoundationText("Lumaret test key again").get(), 0, second.receive()),
          "SecACLCreateWithSimpleContents");
  const auto signing = coreFoundationArray(
      std::vector{CoreFoundationReference<CFStringRef>::retain(kSecACLAuthorizationSign)});
  require(::SecACLUpdateAuthorizations(second.get(), signing.get()), "SecACLUpdateAuthorizations");
  if (owner == Owner::anyApplication) {
    allowAnyApplication(access, kSecACLAuthorizationChangeACL);
  }
  return access;
}

void importIdentity(SecKeychainRef keychain, const std::filesystem::path& bundle,
                    SecAccessRef access) {
  const std::string file = readFile(bundle);
  const auto data = CoreFoundationReference<CFDataRef>::adopt(
      ::CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(file.data()),
                     static_cast<CFIndex>(file.size())));
  const auto passphrase = coreFoundationText(FreshIdentity::passphrase);
  std::array<const void*, 3> keys = {kSecImportExportPassphrase, kSecImportExportKeychain,
                                     kSecImportExportAccess};
  std::array<const void*, 3> values = {passphrase.get(), keychain, access};
  const auto options = CoreFoundationReference<CFDictionaryRef>::adopt(
      ::CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(), keys.size(),
                           &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CoreFoundationReference<CFArrayRef> imported;
  require(::SecPKCS12Import(data.get(), options.get(), imported.receive()), "SecPKCS12Import");
}

}  // namespace lumaret::tests
