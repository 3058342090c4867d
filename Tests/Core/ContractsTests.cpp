// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"
#include "Tests/Support/Cpp/Case.hpp"
#include "Tests/Support/Cpp/Messages.hpp"
#include "Tests/Support/Cpp/Principals.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests {
namespace {

using Fields = std::map<std::string, std::string>;
using Error = CertificateSelectorError;
using Kind = CertificateSelectorError::Kind;

CertificatePrincipal onlyCommonName(const std::string& commonName) {
  return {commonName, std::nullopt, std::nullopt, std::nullopt};
}

const CertificatePrincipal allFields = {"Ana Example", "Example Org", "Sales", "Lisbon"};
const ClientIdentity identity = {"5d2a", allFields, onlyCommonName("Example CA"), Date()};

TEST(Contracts, ASubjectWithOnlyACommonNameIsNamedAndMatchedByIt) {
  const ClientIdentity ana = {"5d2a", onlyCommonName("Ana"), noFields, Date()};
  EXPECT_EQ(ana.displayName(), "Ana");
  EXPECT_EQ(ana.subject.chromeFilterFields(), (Fields{{"CN", "Ana"}}));
}

TEST(Contracts, ASubjectWithoutACommonNameIsUnnamedWhateverElseItHas) {
  ClientIdentity unnamed = identity;
  unnamed.subject.commonName.reset();
  EXPECT_EQ(unnamed.displayName(), "Unnamed certificate");
}

TEST(Contracts, AnEmptyCommonNameIsTheDisplayName) {
  const ClientIdentity empty = {"5d2a", onlyCommonName(""), noFields, Date()};
  EXPECT_EQ(empty.displayName(), "");
}

TEST(Contracts, DisplayNameKeepsBlanks) {
  const ClientIdentity padded = {"5d2a", onlyCommonName("  Ana "), noFields, Date()};
  EXPECT_EQ(padded.displayName(), "  Ana ");
}

TEST(Contracts, FilterFieldsPairEveryFieldWithItsKey) {
  EXPECT_EQ(
      allFields.chromeFilterFields(),
      (Fields{{"CN", "Ana Example"}, {"L", "Lisbon"}, {"O", "Example Org"}, {"OU", "Sales"}}));
}

TEST(Contracts, FilterFieldsDropAnEmptyOrganizationAndAnAbsentLocality) {
  const CertificatePrincipal principal = {"Ana", "", "Sales", std::nullopt};
  EXPECT_EQ(principal.chromeFilterFields(), (Fields{{"CN", "Ana"}, {"OU", "Sales"}}));
}

TEST(Contracts, FilterFieldsAreEmptyWhenEveryFieldIsAbsentOrEmpty) {
  EXPECT_EQ(noFields.chromeFilterFields(), Fields());
  EXPECT_EQ((CertificatePrincipal{"", "", "", ""}.chromeFilterFields()), Fields());
}

TEST(Contracts, FilterFieldsKeepBlanksAndLetterCase) {
  EXPECT_EQ(onlyCommonName(" aNA ").chromeFilterFields(), (Fields{{"CN", " aNA "}}));
  EXPECT_EQ(onlyCommonName(" ").chromeFilterFields(), (Fields{{"CN", " "}}));
}

TEST(Contracts, IdentitiesWithTheSameIdAndAnotherExpiryDiffer) {
  ClientIdentity renewed = identity;
  renewed.expiresAt += std::chrono::microseconds(1);
  EXPECT_EQ(renewed.id, identity.id);
  EXPECT_FALSE(renewed == identity);
}

TEST(Contracts, IdentitiesAreEqualWhenEveryFieldIs) {
  const ClientIdentity copy = identity;
  EXPECT_TRUE(copy == identity);

  ClientIdentity other = identity;
  other.id = "5D2A";
  EXPECT_FALSE(other == identity);
  other = identity;
  other.subject.locality = "Porto";
  EXPECT_FALSE(other == identity);
  other = identity;
  other.issuer.organization = "Example Trust";
  EXPECT_FALSE(other == identity);
}

using Field = Case<std::optional<std::string> CertificatePrincipal::*>;

class PrincipalField : public testing::TestWithParam<Field> {};

TEST_P(PrincipalField, IsNotAbsentWhenItIsEmpty) {
  CertificatePrincipal principal = noFields;
  EXPECT_TRUE(principal == noFields);
  principal.*GetParam().value = "";
  EXPECT_FALSE(principal == noFields);
}

TEST_P(PrincipalField, MakesTwoNamesDiffer) {
  CertificatePrincipal principal = allFields;
  EXPECT_TRUE(principal == allFields);
  principal.*GetParam().value = "Another";
  EXPECT_FALSE(principal == allFields);
}

INSTANTIATE_TEST_SUITE_P(Contracts, PrincipalField,
                         testing::Values(Field{"commonName", &CertificatePrincipal::commonName},
                                         Field{"organization", &CertificatePrincipal::organization},
                                         Field{"organizationalUnit",
                                               &CertificatePrincipal::organizationalUnit},
                                         Field{"locality", &CertificatePrincipal::locality}),
                         caseName);

struct ErrorText {
  Kind kind;
  Error error;
  std::string message;
};

using ErrorCase = Case<ErrorText>;

/// Every kind of error with its message, in the order of their declaration.
const std::vector<ErrorCase>& errorTexts() {
  static const std::vector<ErrorCase> texts = {
      {"keychainFailure",
       {Kind::keychainFailure, Error::keychainFailure(-61),
        messages::told(messages::keychainFailure, -61)}},
      {"chromeLaunchFailed",
       {Kind::chromeLaunchFailed, Error::chromeLaunchFailed("No memory"),
        messages::told(messages::chromeLaunchFailed, "No memory")}},
      {"keychainAuthorizationFailed",
       {Kind::keychainAuthorizationFailed, Error::keychainAuthorizationFailed(-25293),
        messages::told(messages::keychainAuthorizationFailed, -25293)}},
      {"certificateHasNoSubject",
       {Kind::certificateHasNoSubject, Error::certificateHasNoSubject(),
        messages::certificateHasNoSubject}},
      {"policyEncodingFailed",
       {Kind::policyEncodingFailed, Error::policyEncodingFailed(), messages::policyEncodingFailed}},
      {"policyWriteFailed",
       {Kind::policyWriteFailed, Error::policyWriteFailed(), messages::policyWriteFailed}},
      {"policyVerificationFailed",
       {Kind::policyVerificationFailed, Error::policyVerificationFailed(),
        messages::policyVerificationFailed}},
      {"chromeNotInstalled",
       {Kind::chromeNotInstalled, Error::chromeNotInstalled(), messages::chromeNotInstalled}},
      {"selectedIdentityNotFound",
       {Kind::selectedIdentityNotFound, Error::selectedIdentityNotFound(),
        messages::selectedIdentityNotFound}},
      {"selectedIdentityAmbiguous",
       {Kind::selectedIdentityAmbiguous, Error::selectedIdentityAmbiguous(),
        messages::selectedIdentityAmbiguous}},
      {"selectedIdentityHasNoPrivateKey",
       {Kind::selectedIdentityHasNoPrivateKey, Error::selectedIdentityHasNoPrivateKey(),
        messages::selectedIdentityHasNoPrivateKey}},
      {"chromeKeyAuthorizationUnsupported",
       {Kind::chromeKeyAuthorizationUnsupported, Error::chromeKeyAuthorizationUnsupported(),
        messages::chromeKeyAuthorizationUnsupported}},
      {"keychainAuthorizationCancelled",
       {Kind::keychainAuthorizationCancelled, Error::keychainAuthorizationCancelled(),
        messages::keychainAuthorizationCancelled}},
  };
  return texts;
}

class EachSelectorError : public testing::TestWithParam<ErrorCase> {};

TEST_P(EachSelectorError, HasItsMessage) {
  EXPECT_EQ(GetParam().value.error.what(), GetParam().value.message);
  EXPECT_EQ(GetParam().value.error.errorDescription(), GetParam().value.message);
}

TEST_P(EachSelectorError, HasItsKind) {
  EXPECT_EQ(GetParam().value.error.kind(), GetParam().value.kind);
}

TEST_P(EachSelectorError, EqualsOnlyItself) {
  for (const ErrorCase& other : errorTexts()) {
    EXPECT_EQ(GetParam().value.error == other.value.error,
              GetParam().value.kind == other.value.kind)
        << other.name;
  }
}

INSTANTIATE_TEST_SUITE_P(Contracts, EachSelectorError, testing::ValuesIn(errorTexts()), caseName);

TEST(SelectorError, HasThirteenKindsInOrder) {
  ASSERT_EQ(errorTexts().size(), 13U);
  for (std::size_t index = 0; index < errorTexts().size(); ++index) {
    EXPECT_EQ(static_cast<std::size_t>(errorTexts()[index].value.kind), index);
  }
}

TEST(SelectorError, KeychainFailureWritesANegativeStatus) {
  EXPECT_EQ(Error::keychainFailure(-25300).errorDescription(),
            messages::told(messages::keychainFailure, "-25300"));
}

TEST(SelectorError, KeychainAuthorizationFailureWritesANegativeStatus) {
  EXPECT_EQ(Error::keychainAuthorizationFailed(-2070).errorDescription(),
            messages::told(messages::keychainAuthorizationFailed, "-2070"));
}

TEST(SelectorError, KeychainFailureWritesStatusZero) {
  EXPECT_EQ(Error::keychainFailure(0).errorDescription(),
            messages::told(messages::keychainFailure, "0"));
}

TEST(SelectorError, StatusesAreWrittenWithoutGroupingUpToTheirLimits) {
  EXPECT_EQ(Error::keychainFailure(std::numeric_limits<KeychainStatus>::min()).errorDescription(),
            messages::told(messages::keychainFailure, "-2147483648"));
  EXPECT_EQ(Error::keychainFailure(std::numeric_limits<KeychainStatus>::max()).errorDescription(),
            messages::told(messages::keychainFailure, "2147483647"));
}

TEST(SelectorError, AnEmptyLaunchFailureTextLeavesTheTrailingBlank) {
  EXPECT_EQ(Error::chromeLaunchFailed("").errorDescription(),
            messages::told(messages::chromeLaunchFailed, ""));
  EXPECT_TRUE(Error::chromeLaunchFailed("").errorDescription().ends_with(": "));
}

TEST(SelectorError, ALaunchFailureTextIsNeitherTrimmedNorPunctuated) {
  EXPECT_EQ(Error::chromeLaunchFailed(" Nada\n").errorDescription(),
            messages::told(messages::chromeLaunchFailed, " Nada\n"));
}

TEST(SelectorError, AZeroByteDoesNotEndTheTextOfALaunchFailure) {
  const std::string text("a\0b", 3);
  EXPECT_EQ(Error::chromeLaunchFailed(text).errorDescription(),
            messages::told(messages::chromeLaunchFailed, text));
}

TEST(SelectorError, TheSameStatusInTwoKindsIsTwoErrors) {
  EXPECT_FALSE(Error::keychainFailure(1) == Error::keychainAuthorizationFailed(1));
  EXPECT_TRUE(Error::keychainFailure(1) == Error::keychainFailure(1));
}

TEST(SelectorError, ErrorsOfOneKindWithDifferentPayloadsDiffer) {
  EXPECT_FALSE(Error::keychainFailure(1) == Error::keychainFailure(-1));
  EXPECT_FALSE(Error::keychainAuthorizationFailed(1) == Error::keychainAuthorizationFailed(2));
  EXPECT_FALSE(Error::chromeLaunchFailed("a") == Error::chromeLaunchFailed("A"));
  EXPECT_TRUE(Error::chromeLaunchFailed("a") == Error::chromeLaunchFailed("a"));
}

}  // namespace
}  // namespace lumaret::tests
