// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"
#include "Tests/Support/Cpp/Principals.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests {
namespace {

using standin::Answer;
using testing::ElementsAre;
using Names = std::vector<std::string>;

class KeychainIdentityTest : public OverStandIn {
 protected:
  void SetUp() override { machine().identities = {identity("zoe"), identity("ana")}; }

  /// The certificates of the identities that the Keychain returns, as strings.
  static Names copied(Answer answer) {
    machine().answers = {{"SecItemCopyMatching", {std::move(answer)}}};
    Names certificates;
    for (const auto& handle : SystemKeychainIdentityQuery().copyIdentities()) {
      const Bytes data = handle.copyCertificate()->data;
      certificates.emplace_back(data.begin(), data.end());
    }
    return certificates;
  }
};

TEST_F(KeychainIdentityTest, AreReadInTheOrderOfTheKeychain) {
  (void)KeychainIdentityLoader().loadIdentities();
  const std::string values =
      ", [kSecOIDX509V1SubjectName, kSecOIDX509V1IssuerName, kSecOIDX509V1ValidityNotAfter], null)";
  EXPECT_THAT(calls("Sec"),
              ElementsAre("SecItemCopyMatching({kSecClass: kSecClassIdentity, "
                          "kSecMatchLimit: kSecMatchLimitAll, kSecReturnRef: true})",
                          "SecIdentityCopyPrivateKey(zoe)", "SecIdentityCopyCertificate(zoe)",
                          "SecCertificateCopyValues(zoe" + values, "SecCertificateCopyData(zoe)",
                          "SecIdentityCopyPrivateKey(ana)", "SecIdentityCopyCertificate(ana)",
                          "SecCertificateCopyValues(ana" + values, "SecCertificateCopyData(ana)"));
}

TEST_F(KeychainIdentityTest, AnswerWithoutIdentitiesIsEmpty) {
  EXPECT_EQ(copied(Answer::status(-25300)), Names());
  EXPECT_EQ(copied(Answer::nothing()), Names());
  EXPECT_EQ(copied(Answer::object({standin::List()})), Names());
  EXPECT_EQ(copied(Answer::object({standin::List{text(u"identity"), {7.0}}})), Names());
}

TEST_F(KeychainIdentityTest, SingleIdentityIsAListOfOne) {
  EXPECT_EQ(copied(Answer::firstElement()), Names{"zoe"});
}

TEST_F(KeychainIdentityTest, OtherElementsAreDropped) {
  EXPECT_EQ(copied(Answer::foreignElement(1)), (Names{"zoe", "ana"}));
}

TEST_F(KeychainIdentityTest, FailureHasItsStatus) {
  const auto failure = [](const Answer& answer) {
    return selectorErrorOf([&answer] { (void)copied(answer); });
  };
  for (const std::int32_t status : {-128, -25304, -25306}) {
    EXPECT_EQ(failure(Answer::status(status)), CertificateSelectorError::keychainFailure(status));
  }
  EXPECT_EQ(failure(Answer::object(text(u"identity"))),
            CertificateSelectorError::keychainFailure(-2070));
}

TEST_F(KeychainIdentityTest, UnusableIdentityIsLeftOut) {
  const std::vector<std::pair<std::string, Answer>> troubles = {
      {"SecIdentityCopyPrivateKey", Answer::status(-25300)},
      {"SecIdentityCopyPrivateKey", Answer::statusAndObject(-61)},
      {"SecIdentityCopyPrivateKey", Answer::nothing()},
      {"SecIdentityCopyCertificate", Answer::statusAndObject(-61)},
      {"SecIdentityCopyCertificate", Answer::nothing()},
      {"SecCertificateCopyValues", Answer::nothing()},
      {"SecCertificateCopyData", Answer::nothing()}};
  for (const auto& [function, answer] : troubles) {
    standin::startOver();
    SetUp();
    machine().answer(function, Answer(answer).onCall(1));
    EXPECT_THAT(displayNames(KeychainIdentityLoader().loadIdentities()), ElementsAre("ana"))
        << function;
    EXPECT_EQ(standin::liveObjects(), 0U) << function;
  }
}

}  // namespace
}  // namespace lumaret::tests
