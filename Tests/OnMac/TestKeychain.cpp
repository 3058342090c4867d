// SPDX-License-Identifier: Apache-2.0
#include "Tests/OnMac/TestKeychain.hpp"

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"

// Keychain files have been deprecated since macOS 10.10 and 12. Identities are still stored in
// them.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace lumaret::tests {
void requirePermission() {
  if (std::getenv("LUMARET_MAY_CHANGE_THIS_MAC") == nullptr) {
    throw std::runtime_error(
        "These tests change this user's keychain search list and Chrome's preferences while they "
        "run: let CTest run them, which sets LUMARET_MAY_CHANGE_THIS_MAC.");
  }
}

TestKeychain::TestKeychain() {
  requirePermission();
  require(::SecKeychainCopySearchList(searchList_.receive()), "SecKeychainCopySearchList");
  // The system expects this folder in every home.
  std::filesystem::create_directories(folder_ / "Library/Preferences");
  ::setenv("HOME", folder_.path().c_str(), 1);
  require(::SecKeychainSetUserInteractionAllowed(false), "SecKeychainSetUserInteractionAllowed");
  constexpr std::string_view password = "test";
  require(::SecKeychainCreate(file_.c_str(), password.size(), password.data(),
                              /*promptUser=*/false, /*initialAccess=*/nullptr, keychain_.receive()),
          "SecKeychainCreate");
  const auto alone = coreFoundationArray(std::vector{keychain_});
  require(::SecKeychainSetSearchList(alone.get()), "SecKeychainSetSearchList");
}

TestKeychain::~TestKeychain() {
  ::SecKeychainDelete(keychain_.get());
  ::setenv("HOME", home_.c_str(), 1);
  if (::SecKeychainSetSearchList(searchList_.get()) != errSecSuccess) {
    std::fputs("The keychain search list was not restored.\n", stderr);
  }
}

void TestKeychain::addIdentity(const FreshIdentity& identity) const {
  shell("/usr/bin/security import '" + identity.bundle.string() + "' -k '" + file_.string() +
        "' -P " + FreshIdentity::passphrase + " -A");
}

void TestKeychain::addCertificate(const FreshIdentity& identity) const {
  const auto data = CoreFoundationReference<CFDataRef>::adopt(::CFDataCreate(
      kCFAllocatorDefault, identity.der.data(), static_cast<CFIndex>(identity.der.size())));
  const auto certificate = CoreFoundationReference<SecCertificateRef>::adopt(
      ::SecCertificateCreateWithData(kCFAllocatorDefault, data.get()));
  require(::SecCertificateAddToKeychain(certificate.get(), keychain_.get()),
          "SecCertificateAddToKeychain");
}

std::string TestKeychain::bytes() const { return readFile(file_); }

}  // namespace lumaret::tests
