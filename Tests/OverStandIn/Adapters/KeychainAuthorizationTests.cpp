// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/macOS/SystemChromeKeychainAuthorizationBackend.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"
#include "Tests/Support/Cpp/CertificateBytes.hpp"
#include "Tests/Support/Cpp/Principals.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests {
namespace {

using standin::AccessList;
using standin::Answer;
using testing::ElementsAre;
using testing::IsEmpty;
using Applications = std::vector<std::string>;
using Backend = SystemChromeKeychainAuthorizationBackend;
using BackendError = KeychainAuthorizationBackendError;

const Backend backend;

// Objects of the first identity in the Keychain.
Backend::PrivateKey firstKey() {
  return backend.copyPrivateKey(backend.copyIdentities().at(0)).value();
}
Backend::ACL firstEntry() { return backend.copySigningACLs(backend.copyAccess(firstKey())).at(0); }

class KeychainAuthorization : public OverStandIn {
 protected:
  void SetUp() override { machine().identities = {identity("ana", {signingEntry({"/Mail"})})}; }

  static AccessList& stored() { return *machine().identities[0].privateKey->accessList; }

  /// Makes every kind of call.
  static void useEveryCall() {
    const auto identity = backend.copyIdentities().at(0);
    (void)backend.certificateData(identity);
    const auto key = backend.copyPrivateKey(identity).value();
    const auto access = backend.copyAccess(key);
    const auto entry = backend.copySigningACLs(access).at(0);
    const auto contents = backend.copyContents(entry);
    (void)backend.identityData(backend.chromeTrustedApplication());
    backend.setContents(contents, entry);
    backend.setAccess(access, key);
  }

  /// How all of that fails if this function has this answer.
  static std::optional<BackendError> failure(const std::string& function, Answer answer) {
    machine().answers = {{function, {std::move(answer)}}};
    return thrownBy<BackendError>(useEveryCall);
  }
};

TEST_F(KeychainAuthorization, AddsChromeToEverySigningEntryInOneStep) {
  machine().identities = {
      identity("ana", {{{"kSecACLAuthorizationSign"}, {{"/Mail"}}, u"Ana's key", 0x0001},
                       {{"kSecACLAuthorizationDecrypt"}, {{"/Mail"}}, u"decrypt", 0},
                       {{"kSecACLAuthorizationAny"}, Applications(), u"Cl\u00e9", 0x0050}}),
      identity("mia")};
  KeychainChromePrivateKeyAuthorizer().authorize({idOf("ana"), noFields, noFields, {}});
  EXPECT_EQ(
      stored(),
      (AccessList{
          {{"kSecACLAuthorizationSign"}, {{"/Mail", chromeApplication}}, u"Ana's key", 0x0001},
          {{"kSecACLAuthorizationDecrypt"}, {{"/Mail"}}, u"decrypt", 0},
          {{"kSecACLAuthorizationAny"}, {{chromeApplication}}, u"Cl\u00e9", 0x0050}}));
  EXPECT_THAT(
      calls("Sec"),
      ElementsAre(
          "SecItemCopyMatching({kSecClass: kSecClassIdentity, kSecMatchLimit: kSecMatchLimitAll, "
          "kSecReturnRef: true})",
          "SecIdentityCopyCertificate(ana)", "SecCertificateCopyData(ana)",
          "SecIdentityCopyCertificate(mia)", "SecCertificateCopyData(mia)",
          "SecIdentityCopyPrivateKey(ana)", "SecKeychainItemCopyKeychain(ana)",
          "SecKeychainItemCopyAccess(ana)", "SecAccessCopyACLList(ana)",
          "SecACLCopyAuthorizations(entry 0)", "SecACLCopyAuthorizations(entry 1)",
          "SecACLCopyAuthorizations(entry 2)", "SecACLCopyContents(entry 0)",
          "SecACLCopyContents(entry 2)",
          "SecTrustedApplicationCreateFromPath(/Applications/Google Chrome.app)",
          "SecTrustedApplicationCopyData(/Applications/Google Chrome.app)",
          "SecTrustedApplicationCopyData(/Mail)",
          "SecACLSetContents(entry 0, [/Mail, /Applications/Google Chrome.app], Ana's key, 1)",
          "SecACLSetContents(entry 2, [/Applications/Google Chrome.app], Cl\xc3\xa9, 80)",
          "SecKeychainItemSetAccess(ana, ana)"));
}

TEST_F(KeychainAuthorization, FailedCallIsUnsupportedOrHasItsStatus) {
  const std::set<OSStatus> none;
  const std::set<OSStatus> noKeychainItem = {-25304, -25294};
  const std::set<OSStatus> noAccessList = {-25304, -25306};
  const std::vector<std::pair<std::string, std::set<OSStatus>>> unsupported = {
      {"SecItemCopyMatching", none},
      {"SecIdentityCopyCertificate", none},
      {"SecIdentityCopyPrivateKey", none},
      {"SecKeychainItemCopyKeychain", noKeychainItem},
      {"SecKeychainItemCopyAccess", noAccessList},
      {"SecAccessCopyACLList", noAccessList},
      {"SecACLCopyContents", noAccessList},
      {"SecTrustedApplicationCreateFromPath", none},
      {"SecTrustedApplicationCopyData", none},
      {"SecACLSetContents", noAccessList},
      {"SecKeychainItemSetAccess", noAccessList}};
  for (const auto& [function, statuses] : unsupported) {
    for (const OSStatus status : {-25304, -25306, -25294, -25243, -128, 1}) {
      EXPECT_EQ(
          failure(function, Answer::statusAndObject(status)),
          statuses.contains(status) ? BackendError::unsupported() : BackendError::status(status))
          << function << " " << status;
    }
  }
  EXPECT_EQ(stored(), AccessList{signingEntry({"/Mail"})});
}

TEST_F(KeychainAuthorization, SuccessWithoutAnObjectIsAFailure) {
  for (const char* function :
       {"SecItemCopyMatching", "SecIdentityCopyCertificate", "SecCertificateCopyData",
        "SecKeychainItemCopyKeychain", "SecKeychainItemCopyAccess", "SecAccessCopyACLList",
        "SecACLCopyAuthorizations", "SecTrustedApplicationCreateFromPath",
        "SecTrustedApplicationCopyData"}) {
    EXPECT_EQ(failure(function, Answer::nothing()), BackendError::status(-2070)) << function;
  }
}

TEST_F(KeychainAuthorization, ObjectOfAnotherTypeIsAFailure) {
  for (const char* function :
       {"SecItemCopyMatching", "SecAccessCopyACLList", "SecACLCopyContents"}) {
    for (const std::size_t index : {0U, 1U}) {
      EXPECT_EQ(failure(function, Answer::foreignElement(index)), BackendError::status(-2070))
          << function << " " << index;
    }
  }
  EXPECT_EQ(failure("SecItemCopyMatching", Answer::object(text(u"identity"))),
            BackendError::status(-2070));
}

TEST_F(KeychainAuthorization, NothingFoundIsNoIdentityAndNoKey) {
  const auto identity = backend.copyIdentities().at(0);
  machine().answers = {{"SecItemCopyMatching", {Answer::status(-25300)}},
                       {"SecIdentityCopyPrivateKey", {Answer::status(-25300)}}};
  EXPECT_THAT(backend.copyIdentities(), IsEmpty());
  EXPECT_FALSE(backend.copyPrivateKey(identity));
  machine().answers = {{"SecItemCopyMatching", {Answer::object({standin::List()})}},
                       {"SecIdentityCopyPrivateKey", {Answer::nothing()}}};
  EXPECT_THAT(backend.copyIdentities(), IsEmpty());
  EXPECT_FALSE(backend.copyPrivateKey(identity));
}

TEST_F(KeychainAuthorization, SingleIdentityIsAListOfOne) {
  EXPECT_EQ(failure("SecItemCopyMatching", Answer::firstElement()), std::nullopt);
}

// Since macOS 15, asking such a key for its access list crashes.
TEST_F(KeychainAuthorization, KeyOfATokenIsUnsupported) {
  machine().identities[0].privateKey->accessList.reset();
  EXPECT_EQ(thrownBy<BackendError>(useEveryCall), BackendError::unsupported());
  EXPECT_THAT(calls("SecKeychainItemCopyAccess"), IsEmpty());
}

TEST_F(KeychainAuthorization, SigningEntriesAreThoseForSigningOrAnyOperation) {
  stored() = {{{"kSecACLAuthorizationDecrypt"}, {}, u"decrypt", 0},
              {{"kSecACLAuthorizationAny"}, {}, u"any", 0},
              {{}, {}, u"nothing", 0},
              {{"kSecACLAuthorizationEncrypt", "kSecACLAuthorizationSign"}, {}, u"second", 0}};
  std::vector<std::string> descriptions;
  for (const auto& entry : backend.copySigningACLs(backend.copyAccess(firstKey()))) {
    descriptions.push_back(backend.copyContents(entry).description);
  }
  EXPECT_THAT(descriptions, ElementsAre("any", "second"));
  machine().answer("SecACLCopyAuthorizations",
                   Answer::object({standin::List{{7.0}, {farAhead}, {standin::List()}}}));
  EXPECT_THAT(backend.copySigningACLs(backend.copyAccess(firstKey())), IsEmpty());
}

// An absent list of applications and an empty one are different.
TEST_F(KeychainAuthorization, ContentsAreStoredAsTheyWereRead) {
  stored() = {{{"kSecACLAuthorizationSign"}, std::nullopt, u"any", 0x0001},
              {{"kSecACLAuthorizationSign"}, Applications(), u"none", 0x0050},
              {{"kSecACLAuthorizationSign"}, {{"/Zoom", "/Mail", "/Zoom"}}, u"Cl\u00e9", 0}};
  AccessList turned = stored();
  std::rotate(turned.begin(), turned.begin() + 1, turned.end());
  const auto key = firstKey();
  const auto access = backend.copyAccess(key);
  const auto entries = backend.copySigningACLs(access);
  std::vector<ChromeKeychainACLContents<Backend::TrustedApplication>> contents;
  for (const auto& entry : entries) {
    contents.push_back(backend.copyContents(entry));
  }
  for (std::size_t index = 0; index < entries.size(); ++index) {
    backend.setContents(contents.at((index + 1) % entries.size()), entries[index]);
  }
  backend.setAccess(access, key);
  EXPECT_EQ(stored(), turned);
}

TEST_F(KeychainAuthorization, EntryWithoutAUTF8DescriptionIsAFailure) {
  const auto copyContents = [] { (void)backend.copyContents(firstEntry()); };
  stored()[0].description = standin::Text{0xd800};
  EXPECT_EQ(thrownBy<BackendError>(copyContents), BackendError::status(-2070));
  // The framework returns no description for an open entry with an empty one.
  stored() = {{{"kSecACLAuthorizationAny"}, std::nullopt, u"", 0}};
  EXPECT_EQ(thrownBy<BackendError>(copyContents), BackendError::status(-2070));
}

TEST_F(KeychainAuthorization, ApplicationMayHaveEmptyData) {
  machine().answer("SecTrustedApplicationCopyData", Answer::object({standin::Bytes()}));
  EXPECT_THAT(backend.identityData(backend.chromeTrustedApplication()), IsEmpty());
}

}  // namespace
}  // namespace lumaret::tests
