// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"

namespace lumaret::tests {
namespace {

using testing::ElementsAre;
using Names = std::vector<std::string>;

class KeychainIdentityTest : public OverStandIn {
 protected:
  void SetUp() override { machine()["identities"] = {identity("zoe"), identity("ana")}; }

  static Names loaded(const std::string& function, const json& answer) {
    FreshMac::answer(function, answer);
    return displayNames(KeychainIdentityLoader().loadIdentities());
  }
};

TEST_F(KeychainIdentityTest, AreReadInTheOrderOfTheKeychain) {
  (void)KeychainIdentityLoader().loadIdentities();
  EXPECT_THAT(calls("Sec"),
              ElementsAre("SecItemCopyMatching()", "SecIdentityCopyPrivateKey(zoe)",
                          "SecIdentityCopyCertificate(zoe)", "SecCertificateCopyValues(zoe)",
                          "SecCertificateCopyData(zoe)", "SecIdentityCopyPrivateKey(ana)",
                          "SecIdentityCopyCertificate(ana)", "SecCertificateCopyValues(ana)",
                          "SecCertificateCopyData(ana)"));
}

TEST_F(KeychainIdentityTest, AnswerMayHaveNoneOneOrOtherObjects) {
  const std::string search = "SecItemCopyMatching";
  for (const json& none : {standin::status(-25300), standin::nothing(),
                           standin::object(json::array()), standin::object({"identity", 7})}) {
    EXPECT_EQ(loaded(search, none), Names()) << none;
  }
  EXPECT_EQ(loaded(search, standin::firstElement()), Names{"zoe"});
  EXPECT_EQ(loaded(search, standin::foreignElement(1)), (Names{"ana", "zoe"}));
}

TEST_F(KeychainIdentityTest, FailureHasItsStatus) {
  const auto failure = [](const json& answer) {
    return selectorErrorOf([&answer] { (void)loaded("SecItemCopyMatching", answer); });
  };
  for (const std::int32_t status : {-128, -25304, -25306}) {
    EXPECT_EQ(failure(standin::status(status)), CertificateSelectorError::keychainFailure(status));
  }
  EXPECT_EQ(failure(standin::object("identity")), CertificateSelectorError::keychainFailure(-2070));
}

TEST_F(KeychainIdentityTest, UnusableIdentityIsLeftOut) {
  json failure = standin::status(-61);
  failure["leavesObject"] = true;
  for (const char* function : {"SecIdentityCopyPrivateKey", "SecIdentityCopyCertificate",
                               "SecCertificateCopyValues", "SecCertificateCopyData"}) {
    for (json answer : {failure, standin::nothing()}) {
      standin::startOver();
      SetUp();
      answer["call"] = 1;
      EXPECT_EQ(loaded(function, answer), Names{"ana"}) << function << answer;
      EXPECT_EQ(standin::liveObjects(), 0U) << function << answer;
    }
  }
}

}  // namespace
}  // namespace lumaret::tests
