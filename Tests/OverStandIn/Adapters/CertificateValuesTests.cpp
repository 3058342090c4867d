// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"
#include "Tests/Support/Cpp/Case.hpp"
#include "Tests/Support/Cpp/Principals.hpp"

namespace lumaret::tests {
namespace {

using namespace std::chrono_literals;

constexpr Date referenceDate = std::chrono::sys_days(2001y / 1 / 1);

class CertificateValuesTest : public OverStandIn {
 protected:
  static std::optional<ParsedCertificateValues> parsed(
      std::optional<standin::Dictionary> certificateValues) {
    auto stored = identity("ana");
    stored.certificateValues = std::move(certificateValues);
    machine().identities = {stored};
    const auto handles = SystemKeychainIdentityQuery().copyIdentities();
    return CertificateValueParser::parse(*handles.at(0)->copyCertificate());
  }

  static CertificatePrincipal subject(standin::List attributes) {
    return parsed(certificateValues(std::move(attributes), {farAhead.seconds})).value().subject;
  }

  static std::optional<Date> expiry(standin::Value notAfter) {
    const auto values = parsed(certificateValues({}, std::move(notAfter)));
    return values ? std::optional(values->expiresAt) : std::nullopt;
  }
};

TEST_F(CertificateValuesTest, AreAbsentWhenTheFrameworkReturnsNothing) {
  EXPECT_EQ(parsed(std::nullopt), std::nullopt);
}

TEST_F(CertificateValuesTest, AreAbsentWithoutAnEntryForTheExpiry) {
  auto values = certificateValues({attribute(u"2.5.4.3", u"Ana")}, {farAhead.seconds});
  values.erase(u"kSecOIDX509V1ValidityNotAfter");
  EXPECT_EQ(parsed(values), std::nullopt);
}

TEST_F(CertificateValuesTest, AreAbsentWhenTheEntryForTheExpiryIsNotADictionary) {
  auto values = certificateValues({}, {farAhead});
  values.insert_or_assign(u"kSecOIDX509V1ValidityNotAfter", standin::Value{farAhead});
  EXPECT_EQ(parsed(values), std::nullopt);
}

TEST_F(CertificateValuesTest, AreAbsentWhenTheEntryForTheExpiryHasNoValue) {
  auto values = certificateValues({}, {farAhead});
  values.insert_or_assign(u"kSecOIDX509V1ValidityNotAfter", standin::Value{standin::Dictionary()});
  EXPECT_EQ(parsed(values), std::nullopt);
}

TEST_F(CertificateValuesTest, MissingNamesLeaveTheirFieldsAbsent) {
  auto values = certificateValues({}, {farAhead});
  values.erase(u"kSecOIDX509V1SubjectName");
  values.erase(u"kSecOIDX509V1IssuerName");
  const auto result = parsed(values);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->subject, noFields);
  EXPECT_EQ(result->issuer, noFields);
}

using Seconds = Case<std::pair<double, std::optional<Date>>>;

class Expiry : public CertificateValuesTest, public testing::WithParamInterface<Seconds> {};

TEST_P(Expiry, IsTheSameAsADateAndAsANumber) {
  const auto& [seconds, instant] = GetParam().value;
  EXPECT_EQ(expiry({standin::Date{seconds}}), instant);
  EXPECT_EQ(expiry({seconds}), instant);
}

INSTANTIATE_TEST_SUITE_P(
    Of, Expiry,
    testing::Values(Seconds{"Zero", {0, referenceDate}},
                    Seconds{"AnInteger", {86400, referenceDate + 24h}},
                    Seconds{"AFraction", {0.25, referenceDate + 250ms}},
                    Seconds{"BeforeTheReferenceDate", {-1.5, referenceDate - 1500ms}},
                    Seconds{"TheEndOfTheYear9999",
                            {252423993599., std::chrono::sys_days(9999y / 12 / 31) + 24h - 1s}},
                    Seconds{"BeyondTheClock", {1e13, std::nullopt}},
                    Seconds{"BeforeTheClock", {-1e13, std::nullopt}},
                    Seconds{"TheLargestNumber", {std::numeric_limits<double>::max(), std::nullopt}},
                    Seconds{"Infinite", {std::numeric_limits<double>::infinity(), std::nullopt}},
                    Seconds{"NegativelyInfinite",
                            {-std::numeric_limits<double>::infinity(), std::nullopt}},
                    Seconds{"NoNumber", {std::numeric_limits<double>::quiet_NaN(), std::nullopt}}),
    caseName);

TEST_F(CertificateValuesTest, AnExpiryMayBeKeptAsAnInteger) {
  EXPECT_EQ(expiry({standin::Integer{86400}}), referenceDate + 24h);
  EXPECT_EQ(expiry({standin::Integer{-1}}), referenceDate - 1s);
  EXPECT_EQ(expiry({standin::Integer{(1LL << 53) + 1}}), std::nullopt);
  EXPECT_EQ(expiry({standin::Integer{std::numeric_limits<std::int64_t>::max()}}), std::nullopt);
}

TEST_F(CertificateValuesTest, AnExpiryOfAnyOtherTypeIsRejected) {
  EXPECT_EQ(expiry(text(u"2099-12-31T23:59:59Z")), std::nullopt);
  EXPECT_EQ(expiry({standin::Bytes{1, 2}}), std::nullopt);
  EXPECT_EQ(expiry({true}), std::nullopt);
  EXPECT_EQ(expiry({standin::List{{farAhead}}}), std::nullopt);
  EXPECT_EQ(expiry({standin::Dictionary{{u"kSecPropertyKeyValue", {farAhead}}}}), std::nullopt);
}

TEST_F(CertificateValuesTest, TheFirstNonEmptyOccurrenceWins) {
  EXPECT_EQ(subject({attribute(u"2.5.4.10", u""), attribute(u"2.5.4.11", u"X"),
                     attribute(u"2.5.4.11", u"Y"), attribute(u"2.5.4.10", u"B")}),
            (CertificatePrincipal{std::nullopt, "B", "X", std::nullopt}));
}

TEST_F(CertificateValuesTest, NestedSectionsAreWalkedDepthFirst) {
  EXPECT_EQ(subject({section(u"Set", {section(u"Set", {attribute(u"2.5.4.3", u"deep")})}),
                     attribute(u"2.5.4.3", u"flat"), attribute(u"2.5.4.7", u"here")}),
            (CertificatePrincipal{"deep", std::nullopt, std::nullopt, "here"}));
}

TEST_F(CertificateValuesTest, SeveralAttributesInOnePartOfANameAreASectionWithoutALabel) {
  const auto name =
      subject({attribute(u"2.5.4.6", u"ES"),
               multiValuedPart({attribute(u"2.5.4.11", u"Sales"), attribute(u"2.5.4.3", u"Ana")})});
  EXPECT_EQ(name.commonName, "Ana");
  EXPECT_EQ(name.organizationalUnit, "Sales");
}

TEST_F(CertificateValuesTest, AValueThatTheFrameworkCannotDecodeIsItsHexadecimalText) {
  EXPECT_EQ(subject({attribute(u"2.5.4.3", u"41 42")}).commonName, "41 42");
}

TEST_F(CertificateValuesTest, ASectionUnderAnAttributesLabelIsWalkedToo) {
  EXPECT_EQ(subject({section(u"2.5.4.3", {attribute(u"2.5.4.3", u"inner")})}).commonName, "inner");
}

TEST_F(CertificateValuesTest, MalformedPartsOfANameAreLeftOut) {
  EXPECT_EQ(subject({{standin::Dictionary{{u"kSecPropertyKeyValue", text(u"no label")}}},
                     {standin::Dictionary{{u"kSecPropertyKeyLabel", text(u"2.5.4.3")}}},
                     property({2.0}, text(u"label of another type")),
                     property(text(u"2.5.4.3"), {7.0}),
                     property(text(u"2.5.4.3"), {farAhead}),
                     property(text(u"2.5.4.3"), {standin::Bytes{65}}),
                     text(u"2.5.4.3"),
                     {3.0},
                     {true},
                     {standin::List()},
                     {standin::Dictionary()},
                     attribute(u"2.5.4.3 ", u"label with a blank"),
                     attribute(u"2.5.4.7", u" kept ")}),
            (CertificatePrincipal{std::nullopt, std::nullopt, std::nullopt, " kept "}));
}

TEST_F(CertificateValuesTest, ASectionWithALabelOfAnotherTypeIsStillWalked) {
  EXPECT_EQ(subject({property({1.0}, {standin::List{attribute(u"2.5.4.3", u"Ana")}})}).commonName,
            "Ana");
}

TEST_F(CertificateValuesTest, AStringWithoutAUTF8FormIsLeftOut) {
  const standin::Text high = {u'A', 0xd83d};
  const standin::Text low = {0xde00, u'A'};
  EXPECT_EQ(subject({attribute(u"2.5.4.3", high), attribute(u"2.5.4.3", low),
                     attribute(u"2.5.4.3", u"whole \U0001f600")})
                .commonName,
            "whole \xf0\x9f\x98\x80");
}

TEST_F(CertificateValuesTest, ALabelWithoutAUTF8FormIsIgnored) {
  EXPECT_EQ(subject({attribute({0xd800}, u"Ana")}), noFields);
}

TEST_F(CertificateValuesTest, StringsOfAnyLengthAreComplete) {
  const standin::Text text(100'000, u'\u20ac');
  const auto name = subject({attribute(u"2.5.4.3", text)}).commonName;
  ASSERT_TRUE(name);
  EXPECT_EQ(name->size(), 300'000U);
  EXPECT_TRUE(name->ends_with("\xe2\x82\xac"));
}

TEST_F(CertificateValuesTest, ANullCharacterDoesNotEndAString) {
  EXPECT_EQ(subject({attribute(u"2.5.4.3", standin::Text(u"a\0b", 3))}).commonName,
            std::string("a\0b", 3));
}

}  // namespace
}  // namespace lumaret::tests
