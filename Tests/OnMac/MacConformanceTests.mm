// SPDX-License-Identifier: Apache-2.0
// The suites over the real frameworks of this Mac. They have not run on a Mac yet.

#import <Foundation/Foundation.h>
#include <Security/Security.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/Conformance/Suites.hpp"
#include "Tests/OnMac/Require.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"

// Keychain files have been deprecated since macOS 10.10 and 12. Identities are still stored in
// them.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace lumaret::tests::conformance {
namespace {

/// Ends the test as skipped, because a real Mac cannot be put into its situation. GoogleTest does
/// not report this type of exception again.
[[noreturn]] void leaveOut(const char* why) {
  [why] { GTEST_SKIP() << why; }();
  throw testing::AssertionException(
      testing::TestPartResult(testing::TestPartResult::kSkip, __FILE__, __LINE__, why));
}

void requirePermission() {
  if (std::getenv("LUMARET_MAY_CHANGE_THIS_MAC") == nullptr) {
    throw std::runtime_error(
        "These tests change this user's keychain search list and Chrome's preferences while they "
        "run: let CTest run them, which sets LUMARET_MAY_CHANGE_THIS_MAC.");
  }
}

/// A new keychain file, the only one of the user's that this process searches. Meanwhile nothing
/// asks the user: calls that would have to ask fail. The destructor removes the file and restores
/// the search list.
///
/// The list is the user's own, in ~/Library/Preferences/com.apple.security.plist. That file is
/// found through HOME (DLDBListCFPref.cpp of Apple's Security), which names another folder
/// meanwhile. So the user's file should not change. The list is restored nevertheless.
class Keychain {
 public:
  Keychain() {
    requirePermission();
    require(::SecKeychainCopySearchList(searchList_.receive()), "SecKeychainCopySearchList");
    // The system expects this folder in every home.
    std::filesystem::create_directories(folder_ / "Library/Preferences");
    ::setenv("HOME", folder_.path().c_str(), 1);
    require(::SecKeychainSetUserInteractionAllowed(false), "SecKeychainSetUserInteractionAllowed");
    constexpr std::string_view password = "test";
    require(
        ::SecKeychainCreate(file_.c_str(), password.size(), password.data(),
                            /*promptUser=*/false, /*initialAccess=*/nullptr, keychain_.receive()),
        "SecKeychainCreate");
    const auto alone = coreFoundationArray(std::vector{keychain_});
    require(::SecKeychainSetSearchList(alone.get()), "SecKeychainSetSearchList");
    for (const ClientIdentity& identity : KeychainIdentityLoader().loadIdentities()) {
      foreign_.insert(identity.id);
    }
  }
  Keychain(const Keychain&) = delete;
  Keychain& operator=(const Keychain&) = delete;
  ~Keychain() {
    ::SecKeychainDelete(keychain_.get());
    ::setenv("HOME", home_.c_str(), 1);
    if (::SecKeychainSetSearchList(searchList_.get()) != errSecSuccess) {
      std::fputs("The keychain search list was not restored.\n", stderr);
    }
  }

  Bytes addIdentity(const Name& name) { return add(makeIdentity(folder_, name, KeyType::rsa)); }
  Bytes addIdentityOfToken(const Name&) { leaveOut("There is no smart card in this Mac."); }
  void addCertificateWithoutKey(const Name& name) {
    const Bytes der = makeIdentity(folder_, name, KeyType::rsa).der;
    const auto data = CoreFoundationReference<CFDataRef>::adopt(
        ::CFDataCreate(kCFAllocatorDefault, der.data(), static_cast<CFIndex>(der.size())));
    const auto added = CoreFoundationReference<SecCertificateRef>::adopt(
        ::SecCertificateCreateWithData(kCFAllocatorDefault, data.get()));
    require(::SecCertificateAddToKeychain(added.get(), keychain_.get()),
            "SecCertificateAddToKeychain");
  }
  Bytes addIdentityThatNeverExpires() {
    return add(tests::makeIdentity(folder_, "/CN=Never", KeyType::rsa, "99991231235959Z"));
  }
  KeychainStatus damage() {
    leaveOut("The search passes over a keychain file that it cannot read, and says nothing.");
  }

  [[nodiscard]] std::string contents() const { return readFile(file_); }

  /// Identities of the system's own keychain, which is always searched.
  [[nodiscard]] bool isForeign(const ClientIdentity& identity) const {
    return foreign_.contains(identity.id);
  }

 private:
  /// With a key that any application may use.
  Bytes add(const FreshIdentity& identity) {
    shell("/usr/bin/security import '" + identity.bundle.string() + "' -k '" + file_.string() +
          "' -P " + FreshIdentity::passphrase + " -A");
    return identity.der;
  }

  TemporaryFolder folder_;
  std::filesystem::path file_ = folder_ / "test.keychain-db";
  std::string home_ = std::getenv("HOME");
  CoreFoundationReference<CFArrayRef> searchList_;
  CoreFoundationReference<SecKeychainRef> keychain_;
  std::set<std::string> foreign_;
};

NSString* const preferenceKey = @"AutoSelectCertificateForUrls";

NSData* data(const std::string& text) {
  return [NSData dataWithBytes:text.data() length:text.size()];
}

/// The user's own preference AutoSelectCertificateForUrls of com.google.Chrome, because its daemon
/// has no other place for it. The value that a test leaves there is removed.
class PreferenceStore {
 public:
  PreferenceStore() {
    requirePermission();
    if (stored()) {
      throw std::runtime_error(
          "This user has a value for AutoSelectCertificateForUrls of com.google.Chrome, which "
          "these tests would lose. Remove it with `defaults delete`, if it may go.");
    }
  }
  PreferenceStore(const PreferenceStore&) = delete;
  PreferenceStore& operator=(const PreferenceStore&) = delete;
  ~PreferenceStore() { setValue(nil); }

  // Foundation's JSON is a list or an object, so the value is put into a list.
  void store(const nlohmann::json& value) {
    NSArray* list = [NSJSONSerialization JSONObjectWithData:data("[" + value.dump() + "]")
                                                    options:0
                                                      error:nil];
    setValue(list.firstObject);
  }

  /// As another process reads it.
  [[nodiscard]] std::optional<nlohmann::json> stored() const {
    NSDictionary* all = [NSPropertyListSerialization
        propertyListWithData:data(shell("/usr/bin/defaults export com.google.Chrome -"))
                     options:NSPropertyListImmutable
                      format:nil
                       error:nil];
    if (all == nil) {
      throw std::runtime_error("The preferences of com.google.Chrome cannot be read.");
    }
    if (all[preferenceKey] == nil) {
      return std::nullopt;
    }
    NSData* list = [NSJSONSerialization dataWithJSONObject:@[ all[preferenceKey] ]
                                                   options:0
                                                     error:nil];
    const auto* bytes = static_cast<const char*>(list.bytes);
    return nlohmann::json::parse(bytes, bytes + list.length)[0];
  }

  void refuseWrites() {
    leaveOut("The daemon that keeps this user's preferences refuses nothing.");
  }

 private:
  /// Without a value, removes the preference.
  static void setValue(id value) {
    const CFStringRef application = CFSTR("com.google.Chrome");
    ::CFPreferencesSetValue((__bridge CFStringRef)preferenceKey, (__bridge CFPropertyListRef)value,
                            application, kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
    ::CFPreferencesSynchronize(application, kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
  }
};

/// No test starts the user's Chrome, or anything else with its bundle identifier.
class Desktop {
 public:
  void startChrome() { leaveOut("The user's Chrome is left alone."); }
  void stopChrome() {}
};

TEST(CertificateThatNeverExpires, IsListed) {
  Keychain keychain;
  const std::string never = fingerprint(keychain.addIdentityThatNeverExpires());
  const auto identities = KeychainIdentityLoader().loadIdentities();
  const auto found = std::ranges::find(identities, never, &ClientIdentity::id);
  ASSERT_NE(found, identities.end());
  EXPECT_EQ(found->expiresAt, std::chrono::sys_days(std::chrono::year(9999) / 12 / 31) +
                                  std::chrono::seconds(24 * 60 * 60 - 1));
}

}  // namespace

LUMARET_INSTANTIATE_CONFORMANCE_SUITES(Keychain, PreferenceStore, Desktop);

}  // namespace lumaret::tests::conformance
