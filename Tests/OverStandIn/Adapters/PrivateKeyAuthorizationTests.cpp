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
#include "Tests/Support/Cpp/CertificateBytes.hpp"
#include "Tests/Support/Cpp/Principals.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests {
namespace {

using standin::AccessList;
using testing::ElementsAre;
using testing::IsEmpty;

class AuthorizerOverKeychain : public OverStandIn {
 protected:
  void SetUp() override {
    OverStandIn::SetUp();
    machine().identities = {identity("ana", {signingEntry({"/Mail"})})};
  }

  static std::optional<CertificateSelectorError> authorize() {
    const ClientIdentity selected = {idOf("ana"), noFields, noFields, {}};
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
                  "SecIdentityCopyPrivateKey(ana)", "SecKeychainItemCopyKeychain(ana)",
                  "SecKeychainItemCopyAccess(ana)", "SecAccessCopyACLList(ana)",
                  "SecACLGetTypeID()", "SecACLCopyAuthorizations(entry 0)", "SecACLGetTypeID()",
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

TEST_F(AuthorizerOverKeychain, WritesNothingIfChromeMaySignAlready) {
  const AccessList list = {signingEntry({"/Mail"}), signingEntry({"/Zoom", "/Old/Chrome.app"})};
  store(list);
  machine().applicationData["/Old/Chrome.app"] =
      bytes(std::string(chromeApplication) + std::string(1, '\0'));
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

}  // namespace
}  // namespace lumaret::tests
