// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "Tests/OverStandIn/SampleMac.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"

namespace lumaret::tests {
namespace {

using namespace std::chrono_literals;
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

/// How the framework's values become those that the core parses.
class CertificateValuesTest : public OverStandIn {
 protected:
  static std::optional<ClientIdentity> loaded(json values) {
    machine()["identities"] = json::array({identity("ana")});
    machine()["identities"][0]["values"] = std::move(values);
    const auto identities =
        KeychainIdentityLoader(std::make_shared<SystemKeychainIdentityQuery>(), Date::min)
            .loadIdentities();
    return identities.empty() ? std::nullopt : std::optional(identities[0]);
  }
};

TEST_F(CertificateValuesTest, MayBeMissing) {
  auto values = certificateValues(json::array({property("2.5.4.3", "Ana")}));
  values.erase("kSecOIDX509V1IssuerName");
  EXPECT_EQ(loaded(values)->subject.commonName, "Ana");
  EXPECT_EQ(loaded(values)->issuer, CertificatePrincipal());
  values.erase("kSecOIDX509V1ValidityNotAfter");
  EXPECT_EQ(loaded(values), std::nullopt);
}

TEST_F(CertificateValuesTest, ReadExpiryFromDateOrNumber) {
  constexpr Date referenceDate = std::chrono::sys_days(2001y / 1 / 1);
  const std::vector<std::pair<json, std::optional<Date>>> expiries = {
      {86400.25, referenceDate + 24h + 250ms},
      {252423993599, std::chrono::sys_days(9999y / 12 / 31) + 23h + 59min + 59s},
      {{{"date", -1.5}}, referenceDate - 1500ms},
      {{{"date", 1e13}}, std::nullopt},
      {{{"date", std::numeric_limits<double>::infinity()}}, std::nullopt},
      {"2099-12-31T23:59:59Z", std::nullopt},
      {json::binary({1}), std::nullopt},
      {true, std::nullopt},
      {json::array({farAhead}), std::nullopt}};
  for (const auto& [value, instant] : expiries) {
    const auto identity = loaded(certificateValues(json::array(), value));
    EXPECT_EQ(identity ? std::optional(identity->expiresAt) : std::nullopt, instant) << value;
  }
}

// Several attributes in one part of a name are a section without a label.
TEST_F(CertificateValuesTest, ReadNestedNamesWithoutWhatIsNotText) {
  const json part = {{"kSecPropertyKeyValue",
                      json::array({property("2.5.4.7", "Vigo"), property("2.5.4.11", "R/D")})}};
  const json subject = json::array({property("2.5.4.3", 7), property("2.5.4.3", {{"date", 0}}),
                                    property("2.5.4.3", json::binary({65})), "2.5.4.3",
                                    json::object(), property("2.5.4.3", "A\xed\xa0\xbd"),
                                    property("\xed\xa0\x80", "a label without UTF-8"),
                                    property("2.5.4.3", "whole \U0001f600"),
                                    property(1, json::array({property("2.5.4.10", "Org")})), part});
  EXPECT_EQ(loaded(certificateValues(subject))->subject,
            (CertificatePrincipal{"whole \U0001f600", "Org", "R/D", "Vigo"}));
}

}  // namespace
}  // namespace lumaret::tests
