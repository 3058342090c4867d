// SPDX-License-Identifier: Apache-2.0
// The suites over the real frameworks of this Mac. They have not run on a Mac yet.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <string>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "Tests/Conformance/Suites.hpp"
#include "Tests/OnMac/ChromePreferences.hpp"
#include "Tests/OnMac/TestKeychain.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"

namespace lumaret::tests::conformance {
namespace {

/// Ends the test as skipped, because a real Mac cannot be put into its situation. GoogleTest does
/// not report this type of exception again.
[[noreturn]] void leaveOut(const char* why) {
  [why] { GTEST_SKIP() << why; }();
  throw testing::AssertionException(
      testing::TestPartResult(testing::TestPartResult::kSkip, __FILE__, __LINE__, why));
}

class Keychain {
 public:
  Keychain() {
    for (const ClientIdentity& identity : KeychainIdentityLoader().loadIdentities()) {
      foreign_.insert(identity.id);
    }
  }

  Bytes addIdentity(const Name& name) {
    const FreshIdentity identity = makeIdentity(material_, name, KeyType::rsa);
    keychain_.addIdentity(identity);
    return identity.der;
  }
  Bytes addIdentityOfToken(const Name&) { leaveOut("There is no smart card in this Mac."); }
  void addCertificateWithoutKey(const Name& name) {
    keychain_.addCertificate(makeIdentity(material_, name, KeyType::rsa));
  }
  KeychainStatus damage() {
    leaveOut("The search passes over a keychain file that it cannot read, and says nothing.");
  }

  [[nodiscard]] std::string contents() const { return keychain_.bytes(); }

  /// Identities of the system's own keychain, which is always searched.
  [[nodiscard]] bool isForeign(const ClientIdentity& identity) const {
    return foreign_.contains(identity.id);
  }

 private:
  TestKeychain keychain_;
  TemporaryFolder material_;
  std::set<std::string> foreign_;
};

class PreferenceStore : public ChromePreferences {
 public:
  void refuseWrites() {
    leaveOut("The daemon that keeps this user's preferences refuses nothing.");
  }
};

/// No test starts the user's Chrome, or anything else with its bundle identifier.
class Desktop {
 public:
  void startChrome() { leaveOut("The user's Chrome is left alone."); }
  void stopChrome() {}
};

TEST(CertificateThatNeverExpires, IsListed) {
  const TestKeychain keychain;
  const TemporaryFolder folder;
  const auto never = tests::makeIdentity(folder, "/CN=Never", KeyType::rsa, "99991231235959Z");
  keychain.addIdentity(never);
  const auto identities = KeychainIdentityLoader().loadIdentities();
  const auto found = std::ranges::find(identities, fingerprint(never.der), &ClientIdentity::id);
  ASSERT_NE(found, identities.end());
  EXPECT_EQ(found->expiresAt, std::chrono::sys_days(std::chrono::year(9999) / 12 / 31) +
                                  std::chrono::seconds(24 * 60 * 60 - 1));
}

}  // namespace

LUMARET_INSTANTIATE_CONFORMANCE_SUITES(Keychain, PreferenceStore, Desktop);

}  // namespace lumaret::tests::conformance
