// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"
#include "Tests/Support/Cpp/Case.hpp"
#include "Tests/Support/Cpp/CertificateBytes.hpp"
#include "Tests/Support/Cpp/Principals.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests {
namespace {

using standin::AccessList;
using standin::Answer;
using testing::ElementsAre;
using testing::IsEmpty;
using Error = CertificateSelectorError;

class AuthorizerOverKeychain : public OverStandIn {
 protected:
  void SetUp() override {
    OverStandIn::SetUp();
    machine().identities = {identity("ana", {signingEntry({"/Mail"})})};
  }

  static std::optional<Error> authorize(const std::string& certificate = "ana") {
    const ClientIdentity selected = {idOf(certificate), noFields, noFields, {}};
    return selectorErrorOf(
        [&selected] { KeychainChromePrivateKeyAuthorizer().authorize(selected); });
  }

  /// Replaces the key's stored access list.
  static void store(AccessList list) {
    machine().identities[0].privateKey->accessList = std::move(list);
  }
  static const AccessList& stored() { return *machine().identities[0].privateKey->accessList; }
};

TEST_F(AuthorizerOverKeychain, AppendsChromeToEverySigningEntryAndStoresOnce) {
  store({{{"kSecACLAuthorizationSign"}, {{"/Mail"}}, u"Ana's key", 0x0001},
         {{"kSecACLAuthorizationDecrypt"}, {{"/Mail"}}, u"decrypt", 0},
         {{"kSecACLAuthorizationAny"}, {{"/Zoom"}}, u"Cl\u00e9", 0x0050},
         {{"kSecACLAuthorizationSign"}, std::vector<std::string>(), u"", 0}});
  EXPECT_EQ(authorize(), std::nullopt);
  EXPECT_EQ(
      stored(),
      (AccessList{
          {{"kSecACLAuthorizationSign"}, {{"/Mail", chromeApplication}}, u"Ana's key", 0x0001},
          {{"kSecACLAuthorizationDecrypt"}, {{"/Mail"}}, u"decrypt", 0},
          {{"kSecACLAuthorizationAny"}, {{"/Zoom", chromeApplication}}, u"Cl\u00e9", 0x0050},
          {{"kSecACLAuthorizationSign"}, {{chromeApplication}}, u"", 0}}));
  EXPECT_THAT(calls("SecKeychainItemSetAccess"), ElementsAre("SecKeychainItemSetAccess(ana, ana)"));
}

TEST_F(AuthorizerOverKeychain, CallsTheFrameworkInOrder) {
  machine().identities = {identity("ana", {signingEntry({"/Mail"}), signingEntry({"/Zoom"})}),
                          identity("mia")};
  EXPECT_EQ(authorize(), std::nullopt);
  EXPECT_THAT(
      calls("Sec"),
      ElementsAre(testing::StartsWith("SecItemCopyMatching("), "SecIdentityGetTypeID()",
                  "SecIdentityCopyCertificate(ana)", "SecCertificateCopyData(ana)",
                  "SecIdentityCopyCertificate(mia)", "SecCertificateCopyData(mia)",
                  "SecIdentityCopyPrivateKey(ana)", "SecKeychainItemCopyAccess(ana)",
                  "SecAccessCopyACLList(ana)", "SecACLGetTypeID()",
                  "SecACLCopyAuthorizations(entry 0)", "SecACLGetTypeID()",
                  "SecACLCopyAuthorizations(entry 1)", "SecACLCopyContents(entry 0)",
                  "SecTrustedApplicationGetTypeID()", "SecACLCopyContents(entry 1)",
                  "SecTrustedApplicationGetTypeID()",
                  "SecTrustedApplicationCreateFromPath(/Applications/Google Chrome.app)",
                  "SecTrustedApplicationCopyData(/Applications/Google Chrome.app)",
                  "SecTrustedApplicationCopyData(/Mail)", "SecTrustedApplicationCopyData(/Zoom)",
                  "SecACLSetContents(entry 0, [/Mail, /Applications/Google Chrome.app], "
                  "Ana's key, 0)",
                  "SecACLSetContents(entry 1, [/Zoom, /Applications/Google Chrome.app], "
                  "Ana's key, 0)",
                  "SecKeychainItemSetAccess(ana, ana)"));
}

TEST_F(AuthorizerOverKeychain, WritesNothingWhereChromeMaySignAlready) {
  const AccessList list = {signingEntry({"/Mail"}), signingEntry({"/Zoom", "/Old/Chrome.app"})};
  store(list);
  machine().applicationData["/Old/Chrome.app"] = bytes(chromeApplication);
  EXPECT_EQ(authorize(), std::nullopt);
  EXPECT_EQ(stored(), list);
  EXPECT_THAT(calls("SecACLSetContents"), IsEmpty());
  EXPECT_THAT(calls("SecKeychainItemSetAccess"), IsEmpty());
}

TEST_F(AuthorizerOverKeychain, TheSameBytesAndMoreAreAnotherApplication) {
  store({signingEntry({"/Applications/Google Chrome.app/"})});
  EXPECT_EQ(authorize(), std::nullopt);
  EXPECT_EQ(stored(),
            AccessList{signingEntry({"/Applications/Google Chrome.app/", chromeApplication})});
}

TEST_F(AuthorizerOverKeychain, LooksNoFurtherThanAnEntryForAnyApplication) {
  const AccessList list = {{{"kSecACLAuthorizationAny"}, std::nullopt, u"any", 0},
                           signingEntry({"/Mail"})};
  store(list);
  EXPECT_EQ(authorize(), std::nullopt);
  EXPECT_EQ(stored(), list);
  EXPECT_THAT(calls("SecACLCopyContents"), ElementsAre("SecACLCopyContents(entry 0)"));
  EXPECT_THAT(calls("SecTrustedApplicationC"), IsEmpty());
}

TEST_F(AuthorizerOverKeychain, AnEmptyKeychainHasNotTheIdentity) {
  machine().identities.clear();
  EXPECT_EQ(authorize(), Error::selectedIdentityNotFound());
}

TEST_F(AuthorizerOverKeychain, AnIdentityThatIsThereTwiceIsAmbiguous) {
  machine().identities = {identity("ana"), identity("ana")};
  EXPECT_EQ(authorize(), Error::selectedIdentityAmbiguous());
}

TEST_F(AuthorizerOverKeychain, AnIdentityMayHaveNoPrivateKey) {
  machine().identities[0].privateKey.reset();
  EXPECT_EQ(authorize(), Error::selectedIdentityHasNoPrivateKey());
}

TEST_F(AuthorizerOverKeychain, AKeyOfATokenIsUnsupported) {
  machine().identities[0].privateKey->accessList.reset();
  EXPECT_EQ(authorize(), Error::chromeKeyAuthorizationUnsupported());
}

TEST_F(AuthorizerOverKeychain, AKeyWithoutSigningEntriesIsUnsupported) {
  store({{{"kSecACLAuthorizationDecrypt"}, {{"/Mail"}}, u"decrypt", 0}});
  EXPECT_EQ(authorize(), Error::chromeKeyAuthorizationUnsupported());
}

TEST_F(AuthorizerOverKeychain, TheCertificateOfEveryIdentityMustBeReadable) {
  machine().identities.push_back(identity("mia"));
  machine().answer("SecIdentityCopyCertificate", Answer::status(-61).onCall(2));
  EXPECT_EQ(authorize(), Error::keychainAuthorizationFailed(-61));
}

TEST_F(AuthorizerOverKeychain, AFailureLeavesTheStoredListAsItWas) {
  const AccessList list = {signingEntry({"/Mail"}), signingEntry({"/Zoom"})};
  store(list);
  machine().answer("SecACLSetContents", Answer::status(-61).onCall(2));
  EXPECT_EQ(authorize(), Error::keychainAuthorizationFailed(-61));
  EXPECT_EQ(stored(), list);
  EXPECT_THAT(calls("SecKeychainItemSetAccess"), IsEmpty());
}

/// The status with which a function fails, and what the user is told.
using Mapping = Case<std::pair<std::string, std::pair<int, Error>>>;

class MappedStatus : public AuthorizerOverKeychain, public testing::WithParamInterface<Mapping> {};

TEST_P(MappedStatus, ReachesTheUserAsItsKind) {
  const auto& [function, outcome] = GetParam().value;
  machine().answer(function, Answer::status(outcome.first));
  EXPECT_EQ(authorize(), outcome.second);
}

const std::string storing = "SecKeychainItemSetAccess";
const std::string naming = "SecTrustedApplicationCreateFromPath";

INSTANTIATE_TEST_SUITE_P(
    Of, MappedStatus,
    testing::Values(
        Mapping{"UserCanceled", {storing, {-128, Error::keychainAuthorizationCancelled()}}},
        Mapping{"UserCanceledElsewhere", {naming, {-128, Error::keychainAuthorizationCancelled()}}},
        Mapping{"Unimplemented", {storing, {-4, Error::chromeKeyAuthorizationUnsupported()}}},
        Mapping{"Format", {storing, {-25256, Error::chromeKeyAuthorizationUnsupported()}}},
        Mapping{"KeyFormat", {storing, {-67734, Error::chromeKeyAuthorizationUnsupported()}}},
        Mapping{"Neighbour", {storing, {-67735, Error::keychainAuthorizationFailed(-67735)}}},
        Mapping{"KeyUsageMask", {storing, {-67737, Error::chromeKeyAuthorizationUnsupported()}}},
        Mapping{"AttributeMask", {storing, {-67739, Error::chromeKeyAuthorizationUnsupported()}}},
        Mapping{"InvalidItemRef", {storing, {-25304, Error::chromeKeyAuthorizationUnsupported()}}},
        Mapping{"NoSuchClass", {storing, {-25306, Error::chromeKeyAuthorizationUnsupported()}}},
        Mapping{"InvalidItemRefElsewhere",
                {naming, {-25304, Error::keychainAuthorizationFailed(-25304)}}},
        Mapping{"NoSuchClassElsewhere",
                {naming, {-25306, Error::keychainAuthorizationFailed(-25306)}}},
        Mapping{"InternalComponent", {storing, {-2070, Error::keychainAuthorizationFailed(-2070)}}},
        Mapping{"AuthorizationFailed",
                {storing, {-25293, Error::keychainAuthorizationFailed(-25293)}}}),
    caseName);

TEST_F(AuthorizerOverKeychain, AnAnswerOfAnotherTypeIsAnInternalFailure) {
  machine().answer("SecAccessCopyACLList", Answer::foreignElement(0));
  EXPECT_EQ(authorize(), Error::keychainAuthorizationFailed(-2070));
}

}  // namespace
}  // namespace lumaret::tests
