// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "Tests/Core/CertificateProperties.hpp"
#include "Tests/Core/KeychainFakes.hpp"
#include "Tests/Support/Cpp/Principals.hpp"

namespace lumaret::tests {
namespace {

using namespace std::chrono_literals;
using std::chrono::sys_days;
using Fields = std::map<std::string, std::string>;
using Parser = CertificateValueParser;

constexpr const char* commonName = "2.5.4.3";
constexpr const char* locality = "2.5.4.7";
constexpr const char* organization = "2.5.4.10";
constexpr const char* organizationalUnit = "2.5.4.11";

constexpr Date start2001 = sys_days(2001y / 1 / 1);
constexpr Date start2030 = sys_days(2030y / 1 / 1);

/// Collects the attributes of a value in addition to those that were collected before.
Fields collected(const CertificateProperty& value, Fields fields = {}) {
  Parser::collectDistinguishedNameFields(present(value), fields);
  return fields;
}

std::optional<ParsedCertificateValues> parsed(const CertificateValues& values) {
  return Parser::parse(FakeCertificate(values));
}

CertificateValues completeValues() {
  return {name({attribute(commonName, "Ana"), attribute(locality, "Lisbon")}),
          name({attribute(commonName, "Example CA"), attribute(organization, "Example Trust")}),
          notAfter({start2030})};
}

TEST(Parser, ReadsSubjectIssuerAndExpiry) {
  EXPECT_EQ(parsed(completeValues()),
            (ParsedCertificateValues{{"Ana", std::nullopt, std::nullopt, "Lisbon"},
                                     {"Example CA", "Example Trust", std::nullopt, std::nullopt},
                                     start2030}));
}

TEST(Parser, PutsEachRecognisedAttributeInItsField) {
  EXPECT_EQ(Parser::principal(
                name({attribute(organizationalUnit, "Sales"), attribute(locality, "Lisbon"),
                      attribute(organization, "Example Org"), attribute(commonName, "Ana")})),
            (CertificatePrincipal{"Ana", "Example Org", "Sales", "Lisbon"}));
}

TEST(Parser, AnEmptyOrganizationDoesNotBlockALaterOne) {
  EXPECT_EQ(Parser::principal(name({attribute(commonName, "A"), attribute(organization, ""),
                                    attribute(organization, "B")})),
            (CertificatePrincipal{"A", "B", std::nullopt, std::nullopt}));
}

TEST(Parser, TheFirstOfTwoOrganizationalUnitsWins) {
  EXPECT_EQ(Parser::principal(
                name({attribute(organizationalUnit, "X"), attribute(organizationalUnit, "Y")})),
            (CertificatePrincipal{std::nullopt, std::nullopt, "X", std::nullopt}));
}

TEST(Parser, AnAttributeThatIsOnlyEverEmptyIsAbsent) {
  EXPECT_EQ(Parser::principal(name({attribute(commonName, ""), attribute(commonName, "")})),
            noFields);
}

TEST(Parser, ASubjectWithoutRecognisedAttributesStillParses) {
  CertificateValues values = completeValues();
  values.subjectName = name({attribute("2.5.4.6", "PT"), attribute("2.5.4.8", "Lisboa"),
                             attribute("2.5.4.9", "Rua 1"), attribute("2.5.4.5", "7"),
                             attribute("1.2.840.113549.1.9.1", "ana@example.com")});
  const auto result = parsed(values);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->subject, noFields);
}

TEST(Parser, MissingNamesStillParse) {
  EXPECT_EQ(parsed({nullptr, nullptr, notAfter({start2030})}),
            (ParsedCertificateValues{noFields, noFields, start2030}));
}

TEST(Parser, NamesThatAreNotDictionariesStillParse) {
  EXPECT_EQ(parsed({present(text("CN=Ana")), present({7.0}), notAfter({start2030})}),
            (ParsedCertificateValues{noFields, noFields, start2030}));
}

TEST(Parser, ACertificateWithoutValuesYieldsNothing) {
  EXPECT_EQ(Parser::parse(FakeCertificate(std::nullopt)), std::nullopt);
}

TEST(Parser, AMissingExpiryYieldsNothingDespiteCompleteNames) {
  CertificateValues values = completeValues();
  values.validityNotAfter = nullptr;
  EXPECT_EQ(parsed(values), std::nullopt);
}

TEST(Parser, AStringAsExpiryYieldsNothingDespiteCompleteNames) {
  CertificateValues values = completeValues();
  values.validityNotAfter = notAfter(text("2030-01-01T00:00:00Z"));
  EXPECT_EQ(parsed(values), std::nullopt);
}

TEST(Parser, AnExpiryOutsideADictionaryYieldsNothing) {
  CertificateValues values = completeValues();
  values.validityNotAfter = present({start2030});
  EXPECT_EQ(parsed(values), std::nullopt);
  values.validityNotAfter =
      present({CertificatePropertyArray{entry("Not Valid After", {start2030})}});
  EXPECT_EQ(parsed(values), std::nullopt);
}

TEST(Parser, AnExpiryEntryWithoutAValueYieldsNothing) {
  CertificateValues values = completeValues();
  values.validityNotAfter = present(entry(present(text("Not Valid After")), nullptr));
  EXPECT_EQ(parsed(values), std::nullopt);
}

TEST(Parser, TheLabelOfTheExpiryDoesNotMatter) {
  CertificateValues values = completeValues();
  values.validityNotAfter = present(entry(nullptr, present({start2030})));
  EXPECT_NE(parsed(values), std::nullopt);
}

TEST(ParserDate, ZeroIsTheReferenceDate) { EXPECT_EQ(Parser::date(present({0.0})), start2001); }

TEST(ParserDate, ANegativeNumberIsBeforeTheReferenceDate) {
  EXPECT_EQ(Parser::date(present({-1.0})), start2001 - 1s);
  EXPECT_EQ(Parser::date(present({-978307200.0})), Date());
}

TEST(ParserDate, ANumberCountsSeconds) {
  EXPECT_EQ(Parser::date(present({915148800.0})), start2030);
}

TEST(ParserDate, KeepsFractionsOfASecond) {
  EXPECT_EQ(Parser::date(present({1.25})), start2001 + 1250ms);
  EXPECT_EQ(Parser::date(present({-0.000001})), start2001 - 1us);
}

TEST(ParserDate, HoldsTheExpiryOfACertificateThatNeverExpires) {
  EXPECT_EQ(Parser::date(present({252423993599.0})),
            Date(sys_days(9999y / 12 / 31) + 23h + 59min + 59s));
}

TEST(ParserDate, ANumberThatNoDateCanHoldYieldsNothing) {
  using Limits = std::numeric_limits<double>;
  for (const double number : {Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity(), 1e300,
                              -1e300, Limits::max(), 0x1p63, -0x1p63}) {
    EXPECT_EQ(Parser::date(present({number})), std::nullopt) << number;
  }
}

TEST(ParserDate, ADateIsUnchanged) {
  EXPECT_EQ(Parser::date(present({start2030 + 1us})), start2030 + 1us);
}

TEST(ParserDate, AnAbsentValueYieldsNothing) { EXPECT_EQ(Parser::date(nullptr), std::nullopt); }

TEST(ParserDate, AnyOtherTypeYieldsNothing) {
  EXPECT_EQ(Parser::date(present(text("0"))), std::nullopt);
  EXPECT_EQ(Parser::date(present({CertificatePropertyArray{{0.0}}})), std::nullopt);
  EXPECT_EQ(Parser::date(present(entry("Not Valid After", {0.0}))), std::nullopt);
  EXPECT_EQ(Parser::date(present({})), std::nullopt);
}

TEST(ParserName, AnAbsentNameHasNoFields) { EXPECT_EQ(Parser::principal(nullptr), noFields); }

TEST(ParserName, ValuesKeepTheirBlanks) {
  EXPECT_EQ(collected(attribute(commonName, "  Ana ")), (Fields{{commonName, "  Ana "}}));
  EXPECT_EQ(collected(attribute(commonName, " ")), (Fields{{commonName, " "}}));
}

TEST(ParserName, ValuesAreNotUnescaped) {
  EXPECT_EQ(collected(attribute(commonName, "Ana\\, Example")),
            (Fields{{commonName, "Ana\\, Example"}}));
}

TEST(ParserName, LabelsAreComparedExactly) {
  for (const char* label :
       {" 2.5.4.3", "2.5.4.3 ", "2.5.4.30", "2.5.4.03", "2.5.4", "CN", "cn", ""}) {
    EXPECT_EQ(collected(attribute(label, "Ana")), Fields()) << label;
  }
}

TEST(ParserName, TheValueUnderALabelThatIsNotAStringIsWalked) {
  EXPECT_EQ(collected(entry(present({2.5}),
                            present({CertificatePropertyArray{attribute(commonName, "Ana")}}))),
            (Fields{{commonName, "Ana"}}));
}

TEST(ParserName, TheValueOfAnEntryWithoutALabelIsWalked) {
  EXPECT_EQ(collected(entry(nullptr, present(attribute(commonName, "Ana")))),
            (Fields{{commonName, "Ana"}}));
}

TEST(ParserName, AStringWithoutAStringLabelAddsNothing) {
  EXPECT_EQ(collected(entry(nullptr, present(text("Ana")))), Fields());
  EXPECT_EQ(collected(entry(present({2.5}), present(text("Ana")))), Fields());
}

TEST(ParserName, ARecognisedEntryWithoutAValueAddsNothing) {
  EXPECT_EQ(collected(entry(present(text(commonName)), nullptr)), Fields());
}

TEST(ParserName, AValueThatIsNotAStringDoesNotBlockALaterOne) {
  EXPECT_EQ(collected({CertificatePropertyArray{entry(commonName, {7.0}), entry(commonName, {}),
                                                attribute(commonName, "Ana")}}),
            (Fields{{commonName, "Ana"}}));
}

TEST(ParserName, TheValueOfARecognisedEntryIsWalkedToo) {
  EXPECT_EQ(collected(section(commonName, {attribute(locality, "Lisbon")})),
            (Fields{{locality, "Lisbon"}}));
}

TEST(ParserName, TheValueOfAnEntryAlreadyCollectedIsWalkedToo) {
  EXPECT_EQ(collected(section(commonName, {attribute(locality, "Lisbon")}), {{commonName, "Ana"}}),
            (Fields{{commonName, "Ana"}, {locality, "Lisbon"}}));
}

TEST(ParserName, NestedSectionsAreReachedAtAnyDepth) {
  CertificateProperty nested = attribute(commonName, "Ana");
  for (int depth = 0; depth < 100; ++depth) {
    nested = section("Section", {{CertificatePropertyArray{nested}}});
  }
  EXPECT_EQ(collected(nested), (Fields{{commonName, "Ana"}}));
}

TEST(ParserName, ANestedAttributeWinsOverALaterOneAboveIt) {
  EXPECT_EQ(
      collected({CertificatePropertyArray{section("Section", {attribute(commonName, "Nested")}),
                                          attribute(commonName, "Above")}}),
      (Fields{{commonName, "Nested"}}));
}

TEST(ParserName, AnArrayWithoutASectionIsReadAsAName) {
  EXPECT_EQ(collected({CertificatePropertyArray{attribute(commonName, "Ana"),
                                                attribute(organization, "Example Org")}}),
            (Fields{{commonName, "Ana"}, {organization, "Example Org"}}));
}

TEST(ParserName, AValueOutsideAnEntryAddsNothing) {
  for (const CertificateProperty& leaf :
       {text(commonName), CertificateProperty{2.5}, CertificateProperty{start2030},
        CertificateProperty{}, CertificateProperty{CertificatePropertyArray{}}}) {
    EXPECT_EQ(collected(leaf), Fields());
  }
}

TEST(ParserName, AnAbsentValueAddsNothing) {
  Fields fields;
  Parser::collectDistinguishedNameFields(nullptr, fields);
  EXPECT_EQ(fields, Fields());
}

TEST(ParserName, WhatIsAlreadyCollectedStays) {
  EXPECT_EQ(collected({CertificatePropertyArray{attribute(commonName, "Later"),
                                                attribute(organization, "Example Org")}},
                      {{commonName, "Earlier"}}),
            (Fields{{commonName, "Earlier"}, {organization, "Example Org"}}));
}

}  // namespace
}  // namespace lumaret::tests
