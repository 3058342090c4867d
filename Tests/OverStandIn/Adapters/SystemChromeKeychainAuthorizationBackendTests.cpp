// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "LumaretMacHelper/macOS/SystemChromeKeychainAuthorizationBackend.hpp"
#include "Tests/OverStandIn/Adapters/BackendTest.hpp"
#include "Tests/Support/Cpp/CertificateBytes.hpp"

namespace lumaret::tests {
namespace {

using standin::Answer;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// copyIdentities

TEST_F(BackendTest, AsksForEveryIdentityAndNothingElse) {
  EXPECT_THAT(backend.copyIdentities(), SizeIs(1));
  EXPECT_THAT(calls("SecItem"),
              ElementsAre("SecItemCopyMatching({kSecClass: kSecClassIdentity, "
                          "kSecMatchLimit: kSecMatchLimitAll, kSecReturnRef: true})"));
}

TEST_F(BackendTest, IdentitiesKeepTheKeychainsOrder) {
  machine().identities = {identity("zoe"), identity("ana"), identity("zoe")};
  std::vector<Bytes> certificates;
  for (const auto& copied : backend.copyIdentities()) {
    certificates.push_back(backend.certificateData(copied));
  }
  EXPECT_THAT(certificates, ElementsAre(bytes("zoe"), bytes("ana"), bytes("zoe")));
}

TEST_F(BackendTest, ItemNotFoundMeansNoIdentities) {
  machine().answer("SecItemCopyMatching", Answer::status(-25300));
  EXPECT_THAT(backend.copyIdentities(), IsEmpty());
}

TEST_F(BackendTest, ASingleIdentityIsAListOfOne) {
  machine().answer("SecItemCopyMatching", Answer::firstElement());
  EXPECT_EQ(backend.certificateData(firstIdentity()), bytes("ana"));
}

TEST_F(BackendTest, AnEmptyArrayMeansNoIdentities) {
  machine().answer("SecItemCopyMatching", Answer::object({standin::List()}));
  EXPECT_THAT(backend.copyIdentities(), IsEmpty());
}

// copyPrivateKey

TEST_F(BackendTest, AnIdentityWithoutAPrivateKeyHasNone) {
  machine().answer("SecIdentityCopyPrivateKey", Answer::status(-25300));
  EXPECT_FALSE(backend.copyPrivateKey(firstIdentity()));
}

TEST_F(BackendTest, SuccessWithoutAKeyMeansNoKey) {
  machine().answer("SecIdentityCopyPrivateKey", Answer::nothing());
  EXPECT_FALSE(backend.copyPrivateKey(firstIdentity()));
}

// copyAccess

TEST_F(BackendTest, AKeyIsAskedForItsKeychainBeforeItsAccessList) {
  (void)firstAccess();
  EXPECT_THAT(calls("SecKeychainItem"),
              ElementsAre("SecKeychainItemCopyKeychain(ana)", "SecKeychainItemCopyAccess(ana)"));
}

TEST_F(BackendTest, AKeyThatIsNotAKeychainItemIsUnsupportedAndItsAccessListIsNotAskedFor) {
  for (const OSStatus status : {-25304, -25294, -25243}) {
    machine().answers.clear();
    machine().answer("SecKeychainItemCopyKeychain", standin::Answer::status(status));
    EXPECT_EQ(failure([] { (void)firstAccess(); }), BackendError::unsupported()) << status;
    EXPECT_THAT(calls("SecKeychainItemCopyAccess"), IsEmpty()) << status;
  }
}

TEST_F(BackendTest, OtherStatusesOfTheKeychainQueryAreFailures) {
  for (const OSStatus status : {-25306, -25300, -128, -2070, 1}) {
    machine().answers.clear();
    machine().answer("SecKeychainItemCopyKeychain", standin::Answer::status(status));
    EXPECT_EQ(failure([] { (void)firstAccess(); }), BackendError::status(status));
  }
  machine().answers.clear();
  machine().answer("SecKeychainItemCopyKeychain", standin::Answer::nothing());
  EXPECT_EQ(failure([] { (void)firstAccess(); }), BackendError::status(-2070));
}

TEST_F(BackendTest, AnAccessListThatIsRefusedForAnotherKeyIsAPlainFailure) {
  machine().answer("SecKeychainItemCopyAccess", standin::Answer::status(-25243));
  EXPECT_EQ(failure([] { (void)firstAccess(); }), BackendError::status(-25243));
}

TEST_F(BackendTest, AKeyOfATokenIsUnsupported) {
  machine().identities[0].privateKey->accessList.reset();
  EXPECT_EQ(failure([] { (void)firstAccess(); }), BackendError::unsupported());
}

// copySigningACLs

TEST_F(BackendTest, SigningEntriesAreThoseForSigningOrAnyOperation) {
  machine().identities[0].privateKey->accessList = {
      {{"kSecACLAuthorizationDecrypt"}, {}, u"decrypt", 0},
      {{"kSecACLAuthorizationAny"}, {}, u"any", 0},
      {{}, {}, u"nothing", 0},
      {{"kSecACLAuthorizationEncrypt", "kSecACLAuthorizationSign"}, {}, u"second tag", 0}};
  std::vector<std::string> descriptions;
  for (const auto& entry : backend.copySigningACLs(firstAccess())) {
    descriptions.push_back(backend.copyContents(entry).description);
  }
  EXPECT_THAT(descriptions, ElementsAre("any", "second tag"));
}

TEST_F(BackendTest, AnAccessListWithoutSigningEntriesGivesNone) {
  storedEntry().authorizations = {"kSecACLAuthorizationDecrypt"};
  EXPECT_THAT(backend.copySigningACLs(firstAccess()), IsEmpty());
  machine().identities[0].privateKey->accessList->clear();
  EXPECT_THAT(backend.copySigningACLs(firstAccess()), IsEmpty());
}

TEST_F(BackendTest, ATagOfAnotherTypeIsNotATagForSigning) {
  machine().answer("SecACLCopyAuthorizations",
                   Answer::object({standin::List{{7.0}, {farAhead}, {standin::List()}}}));
  EXPECT_THAT(backend.copySigningACLs(firstAccess()), IsEmpty());
}

TEST_F(BackendTest, EachTagIsComparedWithSigningFirstAndNoLongerThanNeeded) {
  storedEntry().authorizations = {"kSecACLAuthorizationMAC", "kSecACLAuthorizationAny",
                                  "kSecACLAuthorizationSign"};
  (void)firstEntry();
  EXPECT_THAT(calls("CFEqual"),
              ElementsAre("CFEqual(kSecACLAuthorizationMAC, kSecACLAuthorizationSign)",
                          "CFEqual(kSecACLAuthorizationMAC, kSecACLAuthorizationAny)",
                          "CFEqual(kSecACLAuthorizationAny, kSecACLAuthorizationSign)",
                          "CFEqual(kSecACLAuthorizationAny, kSecACLAuthorizationAny)"));
}

// copyContents and setContents

TEST_F(BackendTest, AnAbsentApplicationListAndAnEmptyOneAreDifferent) {
  machine().identities[0].privateKey->accessList = {
      {{"kSecACLAuthorizationSign"}, std::nullopt, u"any", 0x0001},
      {{"kSecACLAuthorizationSign"}, std::vector<std::string>(), u"none", 0x0050}};
  const auto entries = backend.copySigningACLs(firstAccess());
  const auto any = backend.copyContents(entries.at(0));
  EXPECT_FALSE(any.trustedApplications);
  EXPECT_EQ(any.promptSelector, 0x0001);
  const auto none = backend.copyContents(entries.at(1));
  ASSERT_TRUE(none.trustedApplications);
  EXPECT_THAT(*none.trustedApplications, IsEmpty());
  EXPECT_EQ(none.promptSelector, 0x0050);
}

TEST_F(BackendTest, ApplicationsKeepTheirOrder) {
  storedEntry().applications = {{"/Zoom", "/Mail", "/Zoom"}};
  const auto contents = backend.copyContents(firstEntry());
  std::vector<Bytes> data;
  for (const auto& application : contents.trustedApplications.value()) {
    data.push_back(backend.identityData(application));
  }
  EXPECT_THAT(data,
              ElementsAre(bytes({"/Zoom\0", 6}), bytes({"/Mail\0", 6}), bytes({"/Zoom\0", 6})));
}

TEST_F(BackendTest, AMissingDescriptionIsAFailure) {
  storedEntry().description.reset();
  EXPECT_EQ(failure([] { (void)backend.copyContents(firstEntry()); }), BackendError::status(-2070));
  storedEntry().applications.reset();
  EXPECT_EQ(failure([] { (void)backend.copyContents(firstEntry()); }), BackendError::status(-2070));
}

TEST_F(BackendTest, ADescriptionWithoutAUTF8FormIsAFailure) {
  storedEntry().description = standin::Text{0xd800};
  EXPECT_EQ(failure([] { (void)backend.copyContents(firstEntry()); }), BackendError::status(-2070));
}

TEST_F(BackendTest, WritesContentsAsTheyWereRead) {
  storedEntry() = {{"kSecACLAuthorizationSign"}, {{"/Mail", "/Zoom"}}, u"Cl\u00e9 d'Ana", 0x0051};
  const auto before = storedEntry();
  const auto key = firstKey();
  const auto access = backend.copyAccess(key);
  const auto entry = backend.copySigningACLs(access).at(0);
  backend.setContents(backend.copyContents(entry), entry);
  backend.setAccess(access, key);
  EXPECT_EQ(storedEntry(), before);
}

TEST_F(BackendTest, ALongDescriptionIsComplete) {
  storedEntry().description = standin::Text(100'000, u'\u20ac');
  EXPECT_EQ(backend.copyContents(firstEntry()).description.size(), 300'000U);
}

TEST_F(BackendTest, WritesAnAbsentListAsAbsentAndAnEmptyOneAsEmpty) {
  const auto written = [](std::optional<std::vector<Backend::TrustedApplication>> applications) {
    const auto key = firstKey();
    const auto access = backend.copyAccess(key);
    backend.setContents({std::move(applications), "d", 0}, backend.copySigningACLs(access).at(0));
    backend.setAccess(access, key);
    return storedEntry().applications;
  };
  EXPECT_EQ(written(std::vector<Backend::TrustedApplication>()), std::vector<std::string>());
  EXPECT_EQ(written(std::nullopt), std::nullopt);
}

TEST_F(BackendTest, ContentsReachTheKeyOnlyWhenItsAccessIsStored) {
  const auto access = firstAccess();
  backend.setContents({{}, "changed", 0}, backend.copySigningACLs(access).at(0));
  EXPECT_EQ(storedEntry().description, u"Ana's key");
}

// Applications

TEST_F(BackendTest, ChromeIsKnownByItsBundle) {
  (void)backend.chromeTrustedApplication();
  EXPECT_THAT(calls("SecTrustedApplicationCreateFromPath"),
              ElementsAre("SecTrustedApplicationCreateFromPath(/Applications/Google Chrome.app)"));
}

TEST_F(BackendTest, AnApplicationMayHaveEmptyData) {
  machine().applicationData[chromeApplication] = {};
  EXPECT_THAT(backend.identityData(backend.chromeTrustedApplication()), IsEmpty());
}

}  // namespace
}  // namespace lumaret::tests
