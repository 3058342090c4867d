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

/// What LUMARET_TEST_KEYCHAIN_FOLDER names: where tests on a real Mac may keep what they make.
/// CTest sets it, to a folder of the build. Without it nobody said that these tests may run as this
/// user: throws std::runtime_error.
std::filesystem::path testKeychainFolder();

/// An environment variable with another value, until this goes.
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

/// The keychains that this process searches, as they were when this was made, put back when it
/// goes.
///
/// The list is the user's own, kept in ~/Library/Preferences/com.apple.security.plist. That file is
/// found through HOME (DLDBListCFPref.cpp of Apple's Security), which is another folder meanwhile,
/// so that the user's file should stay as it is; the list is compared and put back all the same.
class PrivateSearchList {
 public:
  PrivateSearchList();
  PrivateSearchList(const PrivateSearchList&) = delete;
  PrivateSearchList& operator=(const PrivateSearchList&) = delete;
  ~PrivateSearchList();

  /// Only this one from now on, beside those that the system adds for every user.
  void set(SecKeychainRef keychain) const;
  [[nodiscard]] std::filesystem::path folder() const { return folder_; }

 private:
  std::filesystem::path folder_;
  CoreFoundationReference<CFArrayRef> before_;
  std::vector<std::string> pathsBefore_;
  std::optional<ChangedVariable> home_;
};

/// A new keychain file, the only one of the user's that this process searches. It goes with its
/// file. Nothing asks the user anything meanwhile: what would have to fails.
///
/// Every failure of the frameworks is a std::runtime_error with the call and its status.
class TestKeychain {
 public:
  TestKeychain();
  TestKeychain(const TestKeychain&) = delete;
  TestKeychain& operator=(const TestKeychain&) = delete;
  ~TestKeychain();

  void addIdentity(const FreshIdentity& identity, SecAccessRef access) const;
  void addCertificate(const FreshIdentity& identity) const;
  /// The keychain's file.
  [[nodiscard]] std::string bytes() const;

 private:
  PrivateSearchList searchList_;
  std::filesystem::path file_;
  CoreFoundationReference<SecKeychainRef> keychain_;
};

}  // namespace lumaret::tests
