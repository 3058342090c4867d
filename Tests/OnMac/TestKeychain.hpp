// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <Security/Security.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/Support/Cpp/FreshIdentity.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {

/// Throws a std::runtime_error with the call and the status, unless the status is success.
inline void require(OSStatus status, const std::string& call) {
  if (status != errSecSuccess) {
    throw std::runtime_error(call + ": " + std::to_string(status));
  }
}

/// Throws a std::runtime_error unless the environment has LUMARET_MAY_CHANGE_THIS_MAC, which CTest
/// sets: otherwise nobody has allowed these tests to run as this user.
void requirePermission();

/// A new keychain file, the only one of the user's that this process searches. Meanwhile nothing
/// asks the user: calls that would have to ask fail. The destructor removes the file and restores
/// the search list.
///
/// The list is the user's own, in ~/Library/Preferences/com.apple.security.plist. That file is
/// found through HOME (DLDBListCFPref.cpp of Apple's Security), which names another folder
/// meanwhile. So the user's file should not change. The list is restored nevertheless.
class TestKeychain {
 public:
  TestKeychain();
  TestKeychain(const TestKeychain&) = delete;
  TestKeychain& operator=(const TestKeychain&) = delete;
  ~TestKeychain();

  /// With a key that any application may use.
  void addIdentity(const FreshIdentity& identity) const;
  void addCertificate(const FreshIdentity& identity) const;
  /// Those of the keychain file.
  [[nodiscard]] std::string bytes() const;

 private:
  TemporaryFolder folder_;
  std::filesystem::path file_ = folder_ / "test.keychain-db";
  std::string home_ = std::getenv("HOME");
  CoreFoundationReference<CFArrayRef> searchList_;
  CoreFoundationReference<SecKeychainRef> keychain_;
};

}  // namespace lumaret::tests
