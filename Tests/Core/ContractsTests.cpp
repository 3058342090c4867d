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
#include "Tests/Support/Cpp/Samples.hpp"
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

TEST(Contracts, AnEmptyCommonNameIsTheDisplayNameAsItStands) {
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

TEST_P(PrincipalField, AbsentEqualsOnlyAbsent) {
  CertificatePrincipal principal = noFields;
  EXPECT_TRUE(principal == noFields);
  principal.*GetParam().value = "";
  EXPECT_FALSE(principal == noFields);
}

TEST_P(PrincipalField, TellsTwoNamesApart) {
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

/// In the order in which the kinds are declared.
const std::vector<ErrorCase>& errorTexts() {
  static const std::vector<ErrorCase> texts = {
      {"keychainFailure",
       {Kind::keychainFailure, Error::keychainFailure(-61),
        "Keychain could not be read (error -61)."}},
      {"chromeLaunchFailed",
       {Kind::chromeLaunchFailed, Error::chromeLaunchFailed("No memory"),
        "Google Chrome could not be opened: No memory"}},
      {"keychainAuthorizationFailed",
       {Kind::keychainAuthorizationFailed, Error::keychainAuthorizationFailed(-25293),
        "Keychain could not authorize Google Chrome for this certificate (error -25293). No Chrome "
        "certificate rule was changed."}},
      {"certificateHasNoSubject",
       {Kind::certificateHasNoSubject, Error::certificateHasNoSubject(),
        "This certificate has no subject fields Chrome can match."}},
      {"policyEncodingFailed",
       {Kind::policyEncodingFailed, Error::policyEncodingFailed(),
        "The Chrome certificate rule could not be encoded."}},
      {"policyWriteFailed",
       {Kind::policyWriteFailed, Error::policyWriteFailed(),
        "The Chrome certificate rule could not be saved."}},
      {"policyVerificationFailed",
       {Kind::policyVerificationFailed, Error::policyVerificationFailed(),
        "The Chrome certificate rule was saved but could not be verified."}},
      {"chromeNotInstalled",
       {Kind::chromeNotInstalled, Error::chromeNotInstalled(),
        "Google Chrome is not installed in /Applications."}},
      {"selectedIdentityNotFound",
       {Kind::selectedIdentityNotFound, Error::selectedIdentityNotFound(),
        "The selected certificate is no longer available in Keychain. Refresh the list and select "
        "it again."}},
      {"selectedIdentityAmbiguous",
       {Kind::selectedIdentityAmbiguous, Error::selectedIdentityAmbiguous(),
        "Keychain returned more than one identity for the selected certificate. Remove the "
        "duplicate identity and try again."}},
      {"selectedIdentityHasNoPrivateKey",
       {Kind::selectedIdentityHasNoPrivateKey, Error::selectedIdentityHasNoPrivateKey(),
        "The selected certificate has no usable private key in Keychain. Import its complete "
        "identity and try again."}},
      {"chromeKeyAuthorizationUnsupported",
       {Kind::chromeKeyAuthorizationUnsupported, Error::chromeKeyAuthorizationUnsupported(),
        "This certificate's private key does not support persistent Chrome authorization. Smart "
        "cards and security tokens may still require their own PIN or confirmation."}},
      {"keychainAuthorizationCancelled",
       {Kind::keychainAuthorizationCancelled, Error::keychainAuthorizationCancelled(),
        "Chrome was not authorized because the Keychain confirmation was cancelled. No Chrome "
        "certificate rule was changed."}},
  };
  return texts;
}

class ErrorCatalogue : public testing::TestWithParam<ErrorCase> {};

TEST_P(ErrorCatalogue, HasItsMessage) {
  EXPECT_EQ(GetParam().value.error.what(), GetParam().value.message);
  EXPECT_EQ(GetParam().value.error.errorDescription(), GetParam().value.message);
}

TEST_P(ErrorCatalogue, HasItsKind) {
  EXPECT_EQ(GetParam().value.error.kind(), GetParam().value.kind);
}

TEST_P(ErrorCatalogue, EqualsOnlyItself) {
  for (const ErrorCase& other : errorTexts()) {
    EXPECT_EQ(GetParam().value.error == other.value.error,
              GetParam().value.kind == other.value.kind)
        << other.name;
  }
}

INSTANTIATE_TEST_SUITE_P(Contracts, ErrorCatalogue, testing::ValuesIn(errorTexts()), caseName);

TEST(SelectorError, HasThirteenKindsInOrder) {
  ASSERT_EQ(errorTexts().size(), 13U);
  for (std::size_t index = 0; index < errorTexts().size(); ++index) {
    EXPECT_EQ(static_cast<std::size_t>(errorTexts()[index].value.kind), index);
  }
}

TEST(SelectorError, KeychainFailureWritesANegativeStatus) {
  EXPECT_STREQ(Error::keychainFailure(-25300).what(), "Keychain could not be read (error -25300).");
}

TEST(SelectorError, KeychainAuthorizationFailureWritesANegativeStatus) {
  EXPECT_STREQ(Error::keychainAuthorizationFailed(-2070).what(),
               "Keychain could not authorize Google Chrome for this certificate (error -2070). No "
               "Chrome certificate rule was changed.");
}

TEST(SelectorError, KeychainFailureWritesStatusZero) {
  EXPECT_STREQ(Error::keychainFailure(0).what(), "Keychain could not be read (error 0).");
}

TEST(SelectorError, StatusesAreWrittenWithoutGroupingUpToTheirLimits) {
  EXPECT_STREQ(Error::keychainFailure(std::numeric_limits<KeychainStatus>::min()).what(),
               "Keychain could not be read (error -2147483648).");
  EXPECT_STREQ(Error::keychainFailure(std::numeric_limits<KeychainStatus>::max()).what(),
               "Keychain could not be read (error 2147483647).");
}

TEST(SelectorError, AnEmptyLaunchFailureTextLeavesTheTrailingBlank) {
  EXPECT_STREQ(Error::chromeLaunchFailed("").what(), "Google Chrome could not be opened: ");
}

TEST(SelectorError, ALaunchFailureTextIsNeitherTrimmedNorEnded) {
  EXPECT_STREQ(Error::chromeLaunchFailed(" Nada\n").what(),
               "Google Chrome could not be opened:  Nada\n");
}

TEST(SelectorError, TheSameStatusInTwoKindsIsTwoErrors) {
  EXPECT_FALSE(Error::keychainFailure(1) == Error::keychainAuthorizationFailed(1));
  EXPECT_TRUE(Error::keychainFailure(1) == Error::keychainFailure(1));
}

TEST(SelectorError, PayloadsTellErrorsOfOneKindApart) {
  EXPECT_FALSE(Error::keychainFailure(1) == Error::keychainFailure(-1));
  EXPECT_FALSE(Error::keychainAuthorizationFailed(1) == Error::keychainAuthorizationFailed(2));
  EXPECT_FALSE(Error::chromeLaunchFailed("a") == Error::chromeLaunchFailed("A"));
  EXPECT_TRUE(Error::chromeLaunchFailed("a") == Error::chromeLaunchFailed("a"));
}

}  // namespace
}  // namespace lumaret::tests
