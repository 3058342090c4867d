// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"
#include "Tests/Support/Cpp/Case.hpp"
#include "Tests/Support/Cpp/CertificateBytes.hpp"
#include "Tests/Support/Cpp/Principals.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests {
namespace {

using namespace std::chrono_literals;
using standin::Answer;
using testing::ElementsAre;
using testing::IsEmpty;
using Error = CertificateSelectorError;

class SystemKeychainIdentityQueryTest : public OverStandIn {
 protected:
  /// The certificates of the identities that the Keychain returned, as strings.
  static std::vector<std::string> copiedCertificates() {
    std::vector<std::string> certificates;
    for (const auto& handle : SystemKeychainIdentityQuery().copyIdentities()) {
      const Bytes data = handle->copyCertificate()->data();
      certificates.emplace_back(data.begin(), data.end());
    }
    return certificates;
  }

  static std::optional<Error> failure() {
    return selectorErrorOf([] { (void)SystemKeychainIdentityQuery().copyIdentities(); });
  }
};

TEST_F(SystemKeychainIdentityQueryTest, AsksForEveryIdentityAndNothingElse) {
  machine().identities = {identity("ana")};
  (void)SystemKeychainIdentityQuery().copyIdentities();
  EXPECT_THAT(calls("SecItem"),
              ElementsAre("SecItemCopyMatching({kSecClass: kSecClassIdentity, "
                          "kSecMatchLimit: kSecMatchLimitAll, kSecReturnRef: true})"));
}

TEST_F(SystemKeychainIdentityQueryTest, KeepsTheOrderOfAnArray) {
  machine().identities = {identity("zoe"), identity("ana"), identity("mia")};
  EXPECT_THAT(copiedCertificates(), ElementsAre("zoe", "ana", "mia"));
}

TEST_F(SystemKeychainIdentityQueryTest, ItemNotFoundMeansNoIdentities) {
  machine().answer("SecItemCopyMatching", Answer::status(-25300));
  machine().identities = {identity("ana")};
  EXPECT_THAT(copiedCertificates(), IsEmpty());
}

TEST_F(SystemKeychainIdentityQueryTest, AnyOtherStatusIsAFailure) {
  machine().answer("SecItemCopyMatching", Answer::status(-128));
  EXPECT_EQ(failure(), Error::keychainFailure(-128));
}

TEST_F(SystemKeychainIdentityQueryTest, TheLegacyStatusesAreFailuresLikeAnyOther) {
  machine().answer("SecItemCopyMatching", Answer::status(-25304));
  EXPECT_EQ(failure(), Error::keychainFailure(-25304));
}

TEST_F(SystemKeychainIdentityQueryTest, SuccessWithNothingMeansNoIdentities) {
  machine().answer("SecItemCopyMatching", Answer::nothing());
  EXPECT_THAT(copiedCertificates(), IsEmpty());
}

TEST_F(SystemKeychainIdentityQueryTest, ASingleIdentityIsAListOfOne) {
  machine().identities = {identity("ana"), identity("mia")};
  machine().answer("SecItemCopyMatching", Answer::firstElement());
  EXPECT_THAT(copiedCertificates(), ElementsAre("ana"));
}

TEST_F(SystemKeychainIdentityQueryTest, AnEmptyArrayMeansNoIdentities) {
  machine().answer("SecItemCopyMatching", Answer::object({standin::List()}));
  EXPECT_THAT(copiedCertificates(), IsEmpty());
}

TEST_F(SystemKeychainIdentityQueryTest, DropsAnythingButIdentitiesFromAnArray) {
  machine().identities = {identity("ana"), identity("mia")};
  machine().answer("SecItemCopyMatching", Answer::foreignElement(1));
  EXPECT_THAT(copiedCertificates(), ElementsAre("ana", "mia"));
}

TEST_F(SystemKeychainIdentityQueryTest, AnArrayWithoutIdentitiesMeansNoIdentities) {
  machine().answer("SecItemCopyMatching",
                   Answer::object({standin::List{text(u"identity"), {7.0}}}));
  EXPECT_THAT(copiedCertificates(), IsEmpty());
}

TEST_F(SystemKeychainIdentityQueryTest, AResultOfAnotherTypeIsAnInternalFailure) {
  machine().answer("SecItemCopyMatching", Answer::object(text(u"identity")));
  EXPECT_EQ(failure(), Error::keychainFailure(-2070));
}

class LoaderOverKeychain : public OverStandIn {
 protected:
  static std::vector<ClientIdentity> load() { return KeychainIdentityLoader().loadIdentities(); }

  static std::vector<std::string> loadedNames() { return displayNames(load()); }
};

TEST_F(LoaderOverKeychain, ReadsNamesExpiryAndFingerprint) {
  auto ana = identity("ana");
  ana.certificateValues = certificateValues(
      {attribute(u"2.5.4.6", u"ES"), attribute(u"2.5.4.3", u"Ana"), attribute(u"2.5.4.10", u"Org"),
       attribute(u"2.5.4.11", u"R/D"), attribute(u"2.5.4.7", u"\u00c1vila")},
      {farAhead});
  machine().identities = {ana};
  EXPECT_THAT(load(), ElementsAre(ClientIdentity{
                          idOf("ana"),
                          {"Ana", "Org", "R/D", "\xc3\x81vila"},
                          {"Example CA", std::nullopt, std::nullopt, std::nullopt},
                          std::chrono::sys_days(2099y / 12 / 31) + 23h + 59min + 59s}));
}

TEST_F(LoaderOverKeychain, AsksEachIdentityInOrder) {
  machine().identities = {identity("ana")};
  (void)load();
  EXPECT_THAT(calls("Sec"),
              ElementsAre(testing::StartsWith("SecItemCopyMatching("), "SecIdentityGetTypeID()",
                          "SecIdentityCopyPrivateKey(ana)", "SecIdentityCopyCertificate(ana)",
                          "SecCertificateCopyValues(ana, [kSecOIDX509V1SubjectName, "
                          "kSecOIDX509V1IssuerName, kSecOIDX509V1ValidityNotAfter], null)",
                          "SecCertificateCopyData(ana)"));
}

TEST_F(LoaderOverKeychain, AsksNothingMoreOfAnIdentityThatItLeavesOut) {
  machine().identities = {identity("ana")};
  machine().identities[0].certificateValues = certificateValues({}, {standin::Date{0}});
  EXPECT_THAT(load(), IsEmpty());
  EXPECT_THAT(calls("SecCertificateCopyData"), IsEmpty());

  machine().identities[0].privateKey = nullptr;
  EXPECT_THAT(load(), IsEmpty());
  EXPECT_THAT(calls("SecIdentityCopyCertificate"), testing::SizeIs(1));
}

/// A function, and its answer for the first of two identities.
using Trouble = Case<std::pair<std::string, Answer>>;

class UnusableIdentity : public LoaderOverKeychain, public testing::WithParamInterface<Trouble> {};

TEST_P(UnusableIdentity, IsLeftOutAndTheOthersAreKept) {
  auto [function, answer] = GetParam().value;
  machine().identities = {identity("ana"), identity("mia")};
  machine().answer(function, std::move(answer).onCall(1));
  EXPECT_THAT(loadedNames(), ElementsAre("mia"));
}

INSTANTIATE_TEST_SUITE_P(
    When, UnusableIdentity,
    testing::Values(
        Trouble{"ItHasNoKey", {"SecIdentityCopyPrivateKey", Answer::status(-25300)}},
        Trouble{"ItsKeyCannotBeHad", {"SecIdentityCopyPrivateKey", Answer::status(-61)}},
        Trouble{"ItsKeyIsNull", {"SecIdentityCopyPrivateKey", Answer::nothing()}},
        Trouble{"ItsCertificateCannotBeHad", {"SecIdentityCopyCertificate", Answer::status(-61)}},
        Trouble{"ItsCertificateIsNull", {"SecIdentityCopyCertificate", Answer::nothing()}},
        Trouble{"ItsCertificateHasNoValues", {"SecCertificateCopyValues", Answer::nothing()}},
        Trouble{"ItsCertificateHasNoBytes", {"SecCertificateCopyData", Answer::nothing()}}),
    caseName);

TEST_F(LoaderOverKeychain, ACertificateThatIsThereTwiceIsListedOnce) {
  machine().identities = {identity("ana"), identity("ana")};
  EXPECT_THAT(loadedNames(), ElementsAre("ana"));
}

TEST_F(LoaderOverKeychain, SortsByNameIgnoringCaseThenByFingerprint) {
  auto second = identity("second");
  second.certificateValues = identity("Ben").certificateValues;
  machine().identities = {second, identity("Ben"), identity("alpha")};
  const auto loaded = load();
  ASSERT_EQ(loaded.size(), 3U);
  EXPECT_EQ(loaded[0].displayName(), "alpha");
  EXPECT_LT(loaded[1].id, loaded[2].id);
}

}  // namespace
}  // namespace lumaret::tests
