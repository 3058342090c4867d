// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"
#include "Tests/Core/CallLog.hpp"
#include "Tests/Support/Cpp/Case.hpp"
#include "Tests/Support/Cpp/CertificateBytes.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests {
namespace {

using testing::ElementsAre;
using Applications = std::optional<std::vector<std::string>>;
using BackendError = KeychainAuthorizationBackendError;
using Error = CertificateSelectorError;

/// A Keychain in memory. The name of an identity is its certificate, and that of an application is
/// its data.
struct FakeKeychain {
  struct Entry {
    std::string name;
    ChromeKeychainACLContents<std::string> contents;
  };

  std::vector<std::string> certificates = {"ana"};
  bool hasPrivateKey = true;
  /// The signing entries of the one private key.
  std::vector<Entry> entries = {{"sign", {{{"Mail"}}, "Ana's key", 0}}};
  std::string chrome = "Chrome";

  /// The call, as logged, that fails, and its error.
  std::string failingCall;
  BackendError error = BackendError::status(-61);

  CallLog log;

  void called(const std::string& call) {
    log.push_back(call);
    if (call == failingCall) {
      throw error;
    }
  }
};

std::string described(const ChromeKeychainACLContents<std::string>& contents) {
  return (contents.trustedApplications ? listed(*contents.trustedApplications) : "any") + " \"" +
         contents.description + "\" " + std::to_string(contents.promptSelector);
}

class FakeBackend {
 public:
  // The types differ, so that the compiler rejects a handle of another kind.
  struct Identity {
    std::string certificate;
  };
  struct PrivateKey {
    std::string owner;
  };
  struct Access {
    std::string key;
  };
  struct ACL {
    std::size_t index;
  };
  using TrustedApplication = std::string;
  using Contents = ChromeKeychainACLContents<TrustedApplication>;

  explicit FakeBackend(FakeKeychain& keychain) : keychain_(&keychain) {}

  [[nodiscard]] std::vector<Identity> copyIdentities() const {
    keychain_->called("copyIdentities");
    std::vector<Identity> identities;
    for (const std::string& certificate : keychain_->certificates) {
      identities.push_back({certificate});
    }
    return identities;
  }

  [[nodiscard]] Bytes certificateData(const Identity& identity) const {
    keychain_->called("certificateData " + identity.certificate);
    return bytes(identity.certificate);
  }

  [[nodiscard]] std::optional<PrivateKey> copyPrivateKey(const Identity& identity) const {
    keychain_->called("copyPrivateKey " + identity.certificate);
    return keychain_->hasPrivateKey ? std::optional(PrivateKey{identity.certificate})
                                    : std::nullopt;
  }

  [[nodiscard]] Access copyAccess(const PrivateKey& key) const {
    keychain_->called("copyAccess " + key.owner);
    return {key.owner};
  }

  [[nodiscard]] std::vector<ACL> copySigningACLs(const Access& access) const {
    keychain_->called("copySigningACLs " + access.key);
    std::vector<ACL> entries;
    for (std::size_t index = 0; index < keychain_->entries.size(); ++index) {
      entries.push_back({index});
    }
    return entries;
  }

  [[nodiscard]] Contents copyContents(const ACL& entry) const {
    keychain_->called("copyContents " + keychain_->entries[entry.index].name);
    return keychain_->entries[entry.index].contents;
  }

  void setContents(const Contents& contents, const ACL& entry) const {
    keychain_->called("setContents " + keychain_->entries[entry.index].name + " " +
                      described(contents));
    keychain_->entries[entry.index].contents = contents;
  }

  void setAccess(const Access& access, const PrivateKey& key) const {
    keychain_->called("setAccess " + access.key + " " + key.owner);
  }

  [[nodiscard]] TrustedApplication chromeTrustedApplication() const {
    keychain_->called("chromeTrustedApplication");
    return keychain_->chrome;
  }

  [[nodiscard]] Bytes identityData(const TrustedApplication& application) const {
    keychain_->called("identityData " + application);
    return bytes(application);
  }

 private:
  FakeKeychain* keychain_;
};

class Workflow : public testing::Test {
 protected:
  void authorize(const std::string& fingerprint = idOf("ana")) {
    ChromeKeychainAuthorizationWorkflow(FakeBackend(keychain)).authorize(fingerprint);
  }

  std::optional<Error> errorOf(const std::string& fingerprint = idOf("ana")) {
    return selectorErrorOf([&] { authorize(fingerprint); });
  }

  [[nodiscard]] CallLog callsAfter(const std::string& call) const {
    const auto found = std::find(keychain.log.begin(), keychain.log.end(), call);
    return {found == keychain.log.end() ? found : found + 1, keychain.log.end()};
  }

  FakeKeychain keychain;
};

TEST_F(Workflow, AddsChromeAndStoresTheAccessListLast) {
  authorize();
  EXPECT_THAT(keychain.log,
              ElementsAre("copyIdentities", "certificateData ana", "copyPrivateKey ana",
                          "copyAccess ana", "copySigningACLs ana", "copyContents sign",
                          "chromeTrustedApplication", "identityData Chrome", "identityData Mail",
                          "setContents sign [Mail, Chrome] \"Ana's key\" 0", "setAccess ana ana"));
}

TEST_F(Workflow, ReadsEveryCertificateWhateverMatched) {
  keychain.certificates = {"bea", "ana", "carla"};
  keychain.hasPrivateKey = false;
  EXPECT_EQ(errorOf(), Error::selectedIdentityHasNoPrivateKey());
  EXPECT_THAT(keychain.log,
              ElementsAre("copyIdentities", "certificateData bea", "certificateData ana",
                          "certificateData carla", "copyPrivateKey ana"));
}

TEST_F(Workflow, AnEmptyKeychainHasNoSelectedIdentity) {
  keychain.certificates.clear();
  EXPECT_EQ(errorOf(), Error::selectedIdentityNotFound());
  EXPECT_THAT(keychain.log, ElementsAre("copyIdentities"));
}

TEST_F(Workflow, AnUpperCaseFingerprintMatchesNothing) {
  EXPECT_EQ(errorOf("24D4B96F58DA6D4A8512313BBD02A28EBF0CA95DEC6E4C86EF78CE7F01E788AC"),
            Error::selectedIdentityNotFound());
}

TEST_F(Workflow, AFingerprintIsNeitherTrimmedNorCompleted) {
  for (const std::string& text :
       {" " + idOf("ana"), idOf("ana") + "\n", idOf("ana").substr(0, 63), std::string()}) {
    EXPECT_EQ(errorOf(text), Error::selectedIdentityNotFound()) << text;
  }
}

TEST_F(Workflow, TheSameIdentityTwiceIsAmbiguous) {
  keychain.certificates = {"ana", "bea", "ana"};
  EXPECT_EQ(errorOf(), Error::selectedIdentityAmbiguous());
  EXPECT_THAT(keychain.log, ElementsAre("copyIdentities", "certificateData ana",
                                        "certificateData bea", "certificateData ana"));
}

TEST_F(Workflow, AnUnreadableCertificateOfAnotherIdentityEndsTheCall) {
  keychain.certificates = {"ana", "bea"};
  keychain.failingCall = "certificateData bea";
  EXPECT_EQ(thrownBy<BackendError>([&] { authorize(); }), BackendError::status(-61));
  EXPECT_THAT(keychain.log,
              ElementsAre("copyIdentities", "certificateData ana", "certificateData bea"));
}

TEST_F(Workflow, AnIdentityWithoutAPrivateKeyIsRefused) {
  keychain.hasPrivateKey = false;
  EXPECT_EQ(errorOf(), Error::selectedIdentityHasNoPrivateKey());
  EXPECT_EQ(keychain.log.back(), "copyPrivateKey ana");
}

TEST_F(Workflow, AKeyWithoutSigningEntriesIsUnsupported) {
  keychain.entries.clear();
  EXPECT_EQ(errorOf(), Error::chromeKeyAuthorizationUnsupported());
  EXPECT_EQ(keychain.log.back(), "copySigningACLs ana");
}

TEST_F(Workflow, AnEntryForEveryApplicationIsEnough) {
  keychain.entries = {{"sign", {std::nullopt, "Ana's key", 0}}};
  authorize();
  EXPECT_EQ(keychain.log.back(), "copyContents sign");
}

TEST_F(Workflow, EntriesAfterOneForEveryApplicationAreNotRead) {
  keychain.entries = {{"first", {{{"Mail"}}, "", 0}},
                      {"second", {std::nullopt, "", 0}},
                      {"third", {{{"Mail"}}, "", 0}}};
  authorize();
  EXPECT_THAT(callsAfter("copySigningACLs ana"),
              ElementsAre("copyContents first", "copyContents second"));
}

TEST_F(Workflow, ChromeInTheSecondEntryIsEnough) {
  keychain.entries = {{"first", {{{"Mail", "Safari"}}, "", 0}},
                      {"second", {{{"Chrome", "Mail"}}, "", 0}}};
  authorize();
  EXPECT_THAT(callsAfter("copySigningACLs ana"),
              ElementsAre("copyContents first", "copyContents second", "chromeTrustedApplication",
                          "identityData Chrome", "identityData Mail", "identityData Safari",
                          "identityData Chrome"));
}

TEST_F(Workflow, EveryEntryGetsChromeLastAndKeepsItsDescriptionAndFlags) {
  keychain.entries = {{"first", {{{"A"}}, "One", 1}}, {"second", {{{"B"}}, "", 0xffff}}};
  authorize();
  EXPECT_THAT(
      callsAfter("identityData Chrome"),
      ElementsAre("identityData A", "identityData B", "setContents first [A, Chrome] \"One\" 1",
                  "setContents second [B, Chrome] \"\" 65535", "setAccess ana ana"));
}

TEST_F(Workflow, AnEmptyListBecomesChromeAlone) {
  keychain.entries = {{"sign", {std::vector<std::string>(), "Ana's key", 3}}};
  authorize();
  EXPECT_EQ(keychain.entries[0].contents,
            (ChromeKeychainACLContents<std::string>{{{"Chrome"}}, "Ana's key", 3}));
}

TEST_F(Workflow, ApplicationsAreComparedByEveryByte) {
  keychain.entries = {{"sign", {{{"Chrom", "Chrome2", "chrome", ""}}, "", 0}}};
  authorize();
  EXPECT_EQ(keychain.entries[0].contents.trustedApplications,
            (Applications{{"Chrom", "Chrome2", "chrome", "", "Chrome"}}));
}

TEST_F(Workflow, TwoApplicationsWithoutDataAreTheSame) {
  keychain.chrome = "";
  keychain.entries = {{"sign", {{{""}}, "", 0}}};
  authorize();
  EXPECT_THAT(callsAfter("chromeTrustedApplication"),
              ElementsAre("identityData ", "identityData "));
}

TEST_F(Workflow, AFailedEntryLeavesTheOthersUnwrittenAndTheAccessListUnstored) {
  keychain.entries = {
      {"first", {{{"A"}}, "", 0}}, {"second", {{{"B"}}, "", 0}}, {"third", {{{"C"}}, "", 0}}};
  keychain.failingCall = "setContents second [B, Chrome] \"\" 0";
  EXPECT_EQ(thrownBy<BackendError>([&] { authorize(); }), BackendError::status(-61));
  EXPECT_EQ(keychain.log.back(), keychain.failingCall);
  EXPECT_EQ(keychain.entries[0].contents.trustedApplications, (Applications{{"A", "Chrome"}}));
}

using CallCase = Case<std::string>;

class FailingCall : public testing::TestWithParam<CallCase> {};

TEST_P(FailingCall, EndsTheWorkflowWithItsErrorUnchanged) {
  for (const BackendError& error : {BackendError::status(-128), BackendError::unsupported()}) {
    FakeKeychain keychain;
    keychain.failingCall = GetParam().value;
    keychain.error = error;
    EXPECT_EQ(thrownBy<BackendError>([&] {
                ChromeKeychainAuthorizationWorkflow(FakeBackend(keychain)).authorize(idOf("ana"));
              }),
              error);
    EXPECT_EQ(keychain.log.back(), GetParam().value);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Workflow, FailingCall,
    testing::Values(CallCase{"copyIdentities", "copyIdentities"},
                    CallCase{"certificateData", "certificateData ana"},
                    CallCase{"copyPrivateKey", "copyPrivateKey ana"},
                    CallCase{"copyAccess", "copyAccess ana"},
                    CallCase{"copySigningACLs", "copySigningACLs ana"},
                    CallCase{"copyContents", "copyContents sign"},
                    CallCase{"chromeTrustedApplication", "chromeTrustedApplication"},
                    CallCase{"identityDataOfChrome", "identityData Chrome"},
                    CallCase{"identityDataOfAnotherApplication", "identityData Mail"},
                    CallCase{"setContents", "setContents sign [Mail, Chrome] \"Ana's key\" 0"},
                    CallCase{"setAccess", "setAccess ana ana"}),
    caseName);

TEST(ACLContents, AreEqualWhenEveryFieldIs) {
  using Contents = ChromeKeychainACLContents<std::string>;
  const Contents contents = {{{"A", "B"}}, "Ana's key", 1};
  EXPECT_TRUE((contents == Contents{{{"A", "B"}}, "Ana's key", 1}));
  EXPECT_FALSE((contents == Contents{{{"B", "A"}}, "Ana's key", 1}));
  EXPECT_FALSE((contents == Contents{{{"A"}}, "Ana's key", 1}));
  EXPECT_FALSE((contents == Contents{{{"A", "B"}}, "ana's key", 1}));
  EXPECT_FALSE((contents == Contents{{{"A", "B"}}, "Ana's key", 0}));
}

TEST(ACLContents, AnAbsentListDiffersFromAnEmptyOne) {
  using Contents = ChromeKeychainACLContents<std::string>;
  EXPECT_TRUE((Contents{std::nullopt, "", 0} == Contents{std::nullopt, "", 0}));
  EXPECT_FALSE((Contents{std::nullopt, "", 0} == Contents{std::vector<std::string>(), "", 0}));
}

TEST(BackendErrors, AreEqualWhenTheirStatusesAre) {
  EXPECT_TRUE(BackendError::status(-128) == BackendError::status(-128));
  EXPECT_FALSE(BackendError::status(-128) == BackendError::status(128));
  EXPECT_TRUE(BackendError::unsupported() == BackendError::unsupported());
  EXPECT_FALSE(BackendError::unsupported() == BackendError::status(0));
}

ClientIdentity identityWithId(const std::string& id) {
  return {id, {"Ana", "Example Org", "Sales", "Lisbon"}, {"Example CA", "", "", ""}, Date()};
}

/// The error that an authorizer reports if the operation fails.
template <typename Failure>
std::optional<Error> mapped(const Failure& failure) {
  const KeychainChromePrivateKeyAuthorizer authorizer(
      [&](const std::string& /*fingerprint*/) { throw failure; });
  return selectorErrorOf([&] { authorizer.authorize(identityWithId("5d2a")); });
}

/// The error that an authorizer reports if the backend fails.
std::optional<Error> mappedFromBackend(const BackendError& error) {
  FakeKeychain keychain;
  keychain.failingCall = "copyAccess ana";
  keychain.error = error;
  const KeychainChromePrivateKeyAuthorizer authorizer{FakeBackend(keychain)};
  return selectorErrorOf([&] { authorizer.authorize(identityWithId(idOf("ana"))); });
}

TEST(Authorizer, HandsTheIdAndNothingElseToTheOperation) {
  std::vector<std::string> fingerprints;
  KeychainChromePrivateKeyAuthorizer([&](const std::string& fingerprint) {
    fingerprints.push_back(fingerprint);
  }).authorize(identityWithId(" 5D2A "));
  EXPECT_THAT(fingerprints, ElementsAre(" 5D2A "));
}

TEST(Authorizer, RunsTheWorkflowOverItsBackendForTheIdentitysId) {
  FakeKeychain keychain;
  keychain.certificates = {"bea", "ana"};
  const KeychainChromePrivateKeyAuthorizer authorizer{FakeBackend(keychain)};
  authorizer.authorize(identityWithId(idOf("bea")));
  EXPECT_EQ(keychain.log.back(), "setAccess bea bea");
}

TEST(Authorizer, ACancelledConfirmationIsReportedAsCancelled) {
  EXPECT_EQ(mappedFromBackend(BackendError::status(-128)), Error::keychainAuthorizationCancelled());
}

TEST(Authorizer, TheUnsupportedKeyFormatIsUnsupportedButItsNeighbourIsNot) {
  EXPECT_EQ(mappedFromBackend(BackendError::status(-67735)),
            Error::keychainAuthorizationFailed(-67735));
  EXPECT_EQ(mappedFromBackend(BackendError::status(-67734)),
            Error::chromeKeyAuthorizationUnsupported());
}

TEST(Authorizer, AKeyThatTheBackendCannotHandleIsUnsupported) {
  EXPECT_EQ(mappedFromBackend(BackendError::unsupported()),
            Error::chromeKeyAuthorizationUnsupported());
}

TEST(Authorizer, AnAmbiguousIdentityIsPassedOn) {
  EXPECT_EQ(mapped(Error::selectedIdentityAmbiguous()), Error::selectedIdentityAmbiguous());
}

TEST(Authorizer, EverySelectorErrorIsPassedOn) {
  for (const Error& error :
       {Error::selectedIdentityNotFound(), Error::selectedIdentityHasNoPrivateKey(),
        Error::chromeKeyAuthorizationUnsupported(), Error::keychainFailure(-128)}) {
    EXPECT_EQ(mapped(error), error);
  }
}

TEST(Authorizer, AnyOtherErrorIsAnInternalFailure) {
  EXPECT_EQ(mapped(std::runtime_error("disk")), Error::keychainAuthorizationFailed(-2070));
  EXPECT_EQ(mapped(std::bad_alloc()), Error::keychainAuthorizationFailed(-2070));
  EXPECT_EQ(mapped(7), Error::keychainAuthorizationFailed(-2070));
}

class UnsupportedStatus : public testing::TestWithParam<KeychainStatus> {};

TEST_P(UnsupportedStatus, IsReportedAsAnUnsupportedKey) {
  EXPECT_EQ(mapped(BackendError::status(GetParam())), Error::chromeKeyAuthorizationUnsupported());
}

INSTANTIATE_TEST_SUITE_P(Authorizer, UnsupportedStatus,
                         testing::Values(-4, -25256, -67734, -67737, -67739));

class OtherStatus : public testing::TestWithParam<KeychainStatus> {};

TEST_P(OtherStatus, IsAFailureWithThatStatus) {
  EXPECT_EQ(mapped(BackendError::status(GetParam())),
            Error::keychainAuthorizationFailed(GetParam()));
}

// Statuses next to those with a meaning here, and statuses with a meaning elsewhere.
INSTANTIATE_TEST_SUITE_P(Authorizer, OtherStatus,
                         testing::Values(-3, -5, 4, -25255, -25257, -67733, -67735, -67736, -67738,
                                         -67740, -127, -129, 128, -25300, -25304, -25306, -2070, 0,
                                         1));

}  // namespace
}  // namespace lumaret::tests
