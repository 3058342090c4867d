// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"
#include "Tests/Support/Cpp/Principals.hpp"

namespace lumaret::tests {
namespace {

using namespace std::chrono_literals;

class CertificateValuesTest : public OverStandIn {
 protected:
  static std::optional<ParsedCertificateValues> parsed(
      std::optional<standin::Dictionary> certificateValues) {
    machine().identities = {identity("ana")};
    machine().identities[0].certificateValues = std::move(certificateValues);
    const auto handles = SystemKeychainIdentityQuery().copyIdentities();
    return CertificateValueParser::parse(*handles.at(0).copyCertificate());
  }

  static CertificatePrincipal subject(standin::List attributes) {
    return parsed(certificateValues(std::move(attributes), {farAhead.seconds})).value().subject;
  }

  static std::optional<Date> expiry(standin::Value notAfter) {
    const auto values = parsed(certificateValues({}, std::move(notAfter)));
    return values ? std::optional(values->expiresAt) : std::nullopt;
  }
};

TEST_F(CertificateValuesTest, MayBeMissing) {
  EXPECT_EQ(parsed(std::nullopt), std::nullopt);
  auto values = certificateValues({attribute(u"2.5.4.3", u"Ana")}, {farAhead});
  values.erase(u"kSecOIDX509V1IssuerName");
  EXPECT_EQ(parsed(values)->subject.commonName, "Ana");
  EXPECT_EQ(parsed(values)->issuer, noFields);
  values.erase(u"kSecOIDX509V1ValidityNotAfter");
  EXPECT_EQ(parsed(values), std::nullopt);
}

TEST_F(CertificateValuesTest, ReadExpiryFromDateOrNumber) {
  constexpr double infinite = std::numeric_limits<double>::infinity();
  constexpr Date referenceDate = std::chrono::sys_days(2001y / 1 / 1);
  const std::vector<std::pair<double, std::optional<Date>>> instants = {
      {0, referenceDate},    {86400.25, referenceDate + 24h + 250ms},
      {1e13, std::nullopt},  {-1.5, referenceDate - 1500ms},
      {-1e13, std::nullopt}, {infinite, std::nullopt}};
  for (const auto& [seconds, instant] : instants) {
    EXPECT_EQ(expiry({standin::Date{seconds}}), instant) << seconds;
    EXPECT_EQ(expiry({seconds}), instant) << seconds;
  }
}

TEST_F(CertificateValuesTest, RejectExpiryOfAnotherType) {
  EXPECT_EQ(expiry(text(u"2099-12-31T23:59:59Z")), std::nullopt);
  EXPECT_EQ(expiry({standin::Bytes{1, 2}}), std::nullopt);
  EXPECT_EQ(expiry({true}), std::nullopt);
  EXPECT_EQ(expiry({standin::List{{farAhead}}}), std::nullopt);
}

TEST_F(CertificateValuesTest, ReadNestedNames) {
  // Several attributes in one part of a name are a section without a label.
  EXPECT_EQ(subject({section(u"Set", {section(u"Set", {attribute(u"2.5.4.3", u"Ana")})}),
                     property({1.0}, {standin::List{attribute(u"2.5.4.10", u"Org")}}),
                     attribute(u"2.5.4.3", u"later"),
                     multiValuedPart({attribute(u"2.5.4.6", u"ES"), attribute(u"2.5.4.7", u"Vigo"),
                                      attribute(u"2.5.4.11", u"R/D")})}),
            (CertificatePrincipal{"Ana", "Org", "R/D", "Vigo"}));
}

TEST_F(CertificateValuesTest, IgnoreValuesThatAreNotText) {
  EXPECT_EQ(
      subject({property(text(u"2.5.4.3"), {7.0}),
               property(text(u"2.5.4.3"), {farAhead}),
               property(text(u"2.5.4.3"), {standin::Bytes{65}}),
               text(u"2.5.4.3"),
               {standin::Dictionary()},
               attribute(u"2.5.4.3", {u'A', 0xd83d}),
               attribute(u"2.5.4.3", {0xde00, u'A'}),
               attribute({0xd800}, u"a label without UTF-8"),
               attribute(u"2.5.4.3", u"whole \U0001f600")}),
      (CertificatePrincipal{"whole \xf0\x9f\x98\x80", std::nullopt, std::nullopt, std::nullopt}));
}

}  // namespace
}  // namespace lumaret::tests
