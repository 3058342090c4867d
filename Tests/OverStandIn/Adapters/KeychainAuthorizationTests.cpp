// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/macOS/SystemChromeKeychainAuthorizationBackend.hpp"
#include "Tests/OverStandIn/SampleMac.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"

namespace lumaret::tests {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Backend = SystemChromeKeychainAuthorizationBackend;
using BackendError = KeychainAuthorizationBackendError;

const Backend backend;

Backend::PrivateKey firstKey() {
  return backend.copyPrivateKey(backend.copyIdentities().at(0)).value();
}
std::vector<Backend::ACL> signingEntries() {
  return backend.copySigningACLs(backend.copyAccess(firstKey()));
}

class KeychainAuthorization : public OverStandIn {
 protected:
  void SetUp() override {
    hold(json::array({signingEntry({"/Mail"})}));
    machine()["applications"] = {{chromeApplication, chromeApplication}};
  }

  static void hold(json accessList) {
    machine()["identities"] = {identity("ana", std::move(accessList)), identity("mia")};
  }
  static json& stored() { return machine()["identities"][0]["accessList"]; }

  static void authorize() {
    KeychainChromePrivateKeyAuthorizer().authorize({idOf("ana"), {}, {}, {}});
  }

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

  static std::optional<BackendError> failure() { return thrownBy<BackendError>(useEveryCall); }
  static std::optional<BackendError> failure(const std::string& function, const json& answer) {
    FreshMac::answer(function, answer);
    return failure();
  }
};

TEST_F(KeychainAuthorization, AddsChromeToEverySigningEntryInOneStep) {
  hold({entry("kSecACLAuthorizationSign", {"/Zoom", "/Mail", "/Zoom"}, "Ana's key", 0x0001),
        entry("kSecACLAuthorizationDecrypt", {"/Mail"}),
        entry("kSecACLAuthorizationAny", json::array(), "Cl\u00e9", 0x0050)});
  authorize();
  EXPECT_EQ(stored(),
            json({entry("kSecACLAuthorizationSign", {"/Zoom", "/Mail", "/Zoom", chromeApplication},
                        "Ana's key", 0x0001),
                  entry("kSecACLAuthorizationDecrypt", {"/Mail"}),
                  entry("kSecACLAuthorizationAny", json::array({chromeApplication}), "Cl\u00e9",
                        0x0050)}));
  EXPECT_THAT(
      calls("Sec"),
      ElementsAre("SecItemCopyMatching()", "SecIdentityCopyCertificate(ana)",
                  "SecCertificateCopyData(ana)", "SecIdentityCopyCertificate(mia)",
                  "SecCertificateCopyData(mia)", "SecIdentityCopyPrivateKey(ana)",
                  "SecKeychainItemCopyKeychain(ana)", "SecKeychainItemCopyAccess(ana)",
                  "SecAccessCopyACLList()", "SecACLCopyAuthorizations(entry 0)",
                  "SecACLCopyAuthorizations(entry 1)", "SecACLCopyAuthorizations(entry 2)",
                  "SecACLCopyContents(entry 0)", "SecACLCopyContents(entry 2)",
                  "SecTrustedApplicationCreateFromPath(/Applications/Google Chrome.app)",
                  "SecTrustedApplicationCopyData(/Applications/Google Chrome.app)",
                  "SecTrustedApplicationCopyData(/Zoom)", "SecTrustedApplicationCopyData(/Mail)",
                  "SecTrustedApplicationCopyData(/Zoom)", "SecACLSetContents(entry 0)",
                  "SecACLSetContents(entry 2)", "SecKeychainItemSetAccess(ana)"));
}

TEST_F(KeychainAuthorization, FailedCallIsUnsupportedOrHasItsStatus) {
  const std::vector<std::pair<std::set<OSStatus>, std::vector<std::string>>> unsupported = {
      {{},
       {"SecItemCopyMatching", "SecIdentityCopyCertificate", "SecIdentityCopyPrivateKey",
        "SecTrustedApplicationCreateFromPath", "SecTrustedApplicationCopyData"}},
      {{-25304, -25294}, {"SecKeychainItemCopyKeychain"}},
      {{-25304, -25306},
       {"SecKeychainItemCopyAccess", "SecAccessCopyACLList", "SecACLCopyContents",
        "SecACLSetContents", "SecKeychainItemSetAccess"}}};
  for (const auto& [statuses, functions] : unsupported) {
    for (const std::string& function : functions) {
      for (const OSStatus status : {-25304, -25306, -25294, -128, 1}) {
        EXPECT_EQ(
            failure(function, {{"status", status}, {"leavesObject", true}}),
            statuses.contains(status) ? BackendError::unsupported() : BackendError::status(status))
            << function << " " << status;
      }
    }
  }
  EXPECT_EQ(stored(), json::array({signingEntry({"/Mail"})}));
}

TEST_F(KeychainAuthorization, MissingOrForeignObjectIsAFailure) {
  for (const char* function :
       {"SecItemCopyMatching", "SecIdentityCopyCertificate", "SecCertificateCopyData",
        "SecKeychainItemCopyKeychain", "SecKeychainItemCopyAccess", "SecAccessCopyACLList",
        "SecACLCopyAuthorizations", "SecTrustedApplicationCreateFromPath",
        "SecTrustedApplicationCopyData"}) {
    EXPECT_EQ(failure(function, standin::nothing()), BackendError::status(-2070)) << function;
  }
  for (const char* function :
       {"SecItemCopyMatching", "SecAccessCopyACLList", "SecACLCopyContents"}) {
    for (const std::size_t index : {0U, 1U}) {
      EXPECT_EQ(failure(function, standin::foreignElement(index)), BackendError::status(-2070))
          << function << " " << index;
    }
  }
  EXPECT_EQ(failure("SecItemCopyMatching", standin::object("identity")),
            BackendError::status(-2070));
}

TEST_F(KeychainAuthorization, IdentityMayBeAloneOrMissingOrWithoutAKey) {
  EXPECT_EQ(failure("SecItemCopyMatching", standin::firstElement()), std::nullopt);
  answer("SecItemCopyMatching", standin::status(-25300));
  EXPECT_THAT(backend.copyIdentities(), IsEmpty());
  for (const json& none : {standin::status(-25300), standin::nothing()}) {
    answer("SecIdentityCopyPrivateKey", none);
    EXPECT_FALSE(backend.copyPrivateKey(backend.copyIdentities().at(0)).has_value()) << none;
  }
}

// Since macOS 15, asking a token's key for its access list crashes.
TEST_F(KeychainAuthorization, KeyOfATokenOrInNoKeychainIsUnsupported) {
  machine()["identities"][0]["isInNoKeychain"] = true;
  EXPECT_EQ(failure(), BackendError::unsupported());
  hold(nullptr);
  EXPECT_EQ(failure(), BackendError::unsupported());
  EXPECT_THAT(calls("SecKeychainItemCopyAccess"), IsEmpty());
}

// The framework reads a tag that it does not know as any operation.
TEST_F(KeychainAuthorization, SigningEntriesAreThoseForSigningOrAnyOperation) {
  json several = signingEntry({});
  several["authorizations"] = {"kSecACLAuthorizationEncrypt", "kSecACLAuthorizationSign"};
  several["description"] = "several";
  json none = signingEntry({});
  none["authorizations"].clear();
  hold({entry("kSecACLAuthorizationDecrypt", json::array()),
        entry("kSecACLAuthorizationAny", json::array(), "any"), none, several,
        entry("1000", json::array(), "unknown")});
  std::vector<std::string> descriptions;
  for (const auto& acl : signingEntries()) {
    descriptions.push_back(backend.copyContents(acl).description);
  }
  EXPECT_THAT(descriptions, ElementsAre("any", "several", "unknown"));
  answer("SecACLCopyAuthorizations", standin::object({7, {{"date", 0}}, json::array()}));
  EXPECT_THAT(signingEntries(), IsEmpty());
}

TEST_F(KeychainAuthorization, AbsentListOpensTheEntry) {
  const auto key = firstKey();
  const auto access = backend.copyAccess(key);
  const auto acl = backend.copySigningACLs(access).at(0);
  auto contents = backend.copyContents(acl);
  contents.trustedApplications.reset();
  backend.setContents(contents, acl);
  backend.setAccess(access, key);
  EXPECT_EQ(stored(), json::array({entry("kSecACLAuthorizationSign", nullptr)}));
  EXPECT_FALSE(backend.copyContents(signingEntries().at(0)).trustedApplications);
}

// The framework reads up to a zero byte, and what is not UTF-8 byte by byte.
TEST_F(KeychainAuthorization, DescriptionIsStoredAsTheFrameworkReadsIt) {
  hold({entry("kSecACLAuthorizationSign", {"/Mail"}, std::string("a\0b", 3)),
        entry("kSecACLAuthorizationSign", {"/Mail"}, "Cl\xe9"),
        entry("kSecACLAuthorizationSign", {"/Mail"}, "")});
  authorize();
  EXPECT_EQ(stored()[0]["description"], "a");
  EXPECT_EQ(stored()[1]["description"], "Cl\u00e9");
  EXPECT_EQ(stored()[2]["description"], "");
}

TEST_F(KeychainAuthorization, EntryThatCannotBeReadIsAFailure) {
  // The framework returns no description for an open entry with an empty one.
  hold(json::array({entry("kSecACLAuthorizationAny", nullptr, "")}));
  EXPECT_EQ(failure(), BackendError::status(-2070));
  json custom = entry("kSecACLAuthorizationDecrypt", json::array());
  custom["isCustom"] = true;
  hold({custom, signingEntry({})});
  EXPECT_EQ(failure(), std::nullopt);
  custom["authorizations"] = {"kSecACLAuthorizationSign"};
  hold({signingEntry({}), custom});
  EXPECT_EQ(selectorErrorOf(authorize),
            CertificateSelectorError::keychainAuthorizationFailed(-25240));
  EXPECT_EQ(stored(), json({signingEntry({}), custom}));
}

// The entries have canonical paths, too.
TEST_F(KeychainAuthorization, ChromeHasItsCanonicalPath) {
  machine()["applications"][chromeApplication] = "/Chrome.app";
  authorize();
  EXPECT_EQ(stored(), json::array({signingEntry({"/Mail", "/Chrome.app"})}));
  authorize();
  EXPECT_EQ(calls("SecKeychainItemSetAccess").size(), 1U);
}

}  // namespace
}  // namespace lumaret::tests
