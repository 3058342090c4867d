// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <Security/Security.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "LumaretMacHelper/macOS/CoreFoundationReference.hpp"
#include "Tests/Support/Cpp/FreshIdentity.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {

/// The folder LUMARET_TEST_KEYCHAIN_FOLDER, in which tests on a real Mac may create files. CTest
/// sets the variable to a folder of the build. Throws a std::runtime_error if it is not set, since
/// then nobody has allowed these tests to run as this user.
std::filesystem::path testKeychainFolder();

/// Sets an environment variable for the lifetime of this object.
class ChangedVariable {
 public:
  ChangedVariable(const char* name, const std::string& value);
  ChangedVariable(const ChangedVariable&) = delete;
  ChangedVariable& operator=(const ChangedVariable&) = delete;
  ~ChangedVariable();

 private:
  const char* name_;
  std::optional<std::string> before_;
};

/// Saves the list of keychains that this process searches. The destructor restores it.
///
/// The list is the user's own, in ~/Library/Preferences/com.apple.security.plist. That file is
/// found through HOME (DLDBListCFPref.cpp of Apple's Security), which names another folder
/// meanwhile. So the user's file should not change. The list is compared and restored nevertheless.
class PrivateSearchList {
 public:
  PrivateSearchList();
  PrivateSearchList(const PrivateSearchList&) = delete;
  PrivateSearchList& operator=(const PrivateSearchList&) = delete;
  ~PrivateSearchList();

  /// From now on searches only this one, beside those that the system adds for every user.
  void set(SecKeychainRef keychain) const;
  [[nodiscard]] std::filesystem::path folder() const { return folder_; }

 private:
  std::filesystem::path folder_;
  CoreFoundationReference<CFArrayRef> before_;
  std::vector<std::string> pathsBefore_;
  std::optional<ChangedVariable> home_;
};

/// A new keychain file, the only one of the user's that this process searches. The destructor
/// removes it. Meanwhile nothing asks the user: calls that would have to ask fail.
///
/// Every failure of the frameworks throws a std::runtime_error with the call and its status.
class TestKeychain {
 public:
  TestKeychain();
  TestKeychain(const TestKeychain&) = delete;
  TestKeychain& operator=(const TestKeychain&) = delete;
  ~TestKeychain();

  void addIdentity(const FreshIdentity& identity, SecAccessRef access) const;
  void addCertificate(const FreshIdentity& identity) const;
  /// The path of the keychain file.
  [[nodiscard]] std::string bytes() const;

 private:
  PrivateSearchList searchList_;
  std::filesystem::path file_;
  CoreFoundationReference<SecKeychainRef> keychain_;
};

}  // namespace lumaret::tests
