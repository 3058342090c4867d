// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <limits>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "Tests/Core/FakeSystem.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"

namespace lumaret::tests {
namespace {

using namespace std::chrono_literals;
using std::chrono::sys_days;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using Array = CertificatePropertyArray;
using Fields = std::map<std::string, std::string>;
using Parser = CertificateValueParser;

constexpr const char* commonName = "2.5.4.3";
constexpr const char* locality = "2.5.4.7";
constexpr const char* organization = "2.5.4.10";
constexpr const char* organizationalUnit = "2.5.4.11";

constexpr Date start2001 = sys_days(2001y / 1 / 1);
constexpr Date start2030 = sys_days(2030y / 1 / 1);

std::optional<ParsedCertificateValues> parsed(const std::optional<CertificateValues>& values) {
  return Parser::parse({values, {}});
}

TEST(Parser, ReadsSubjectIssuerAndExpiry) {
  EXPECT_EQ(parsed({{name({attribute(organizationalUnit, "Sales"), attribute(locality, "Lisbon"),
                           attribute(organization, "Org"), attribute(commonName, "Ana")}),
                     name({attribute(commonName, "CA")}), notAfter({start2030})}}),
            (ParsedCertificateValues{{"Ana", "Org", "Sales", "Lisbon"},
                                     {"CA", std::nullopt, std::nullopt, std::nullopt},
                                     start2030}));
}

TEST(Parser, RequiresNoNames) {
  const auto otherAttributes =
      name({attribute("2.5.4.6", "PT"), attribute("2.5.4.8", "Lisboa"), attribute("2.5.4.9", "Rua"),
            attribute("2.5.4.5", "7"), attribute("1.2.840.113549.1.9.1", "ana@example.com")});
  for (const auto& value :
       {OptionalCertificateProperty(), present(text("CN=Ana")), present({7.0}), otherAttributes}) {
    EXPECT_EQ(parsed({{value, value, notAfter({start2030})}}),
              (ParsedCertificateValues{{}, {}, start2030}));
  }
}

TEST(Parser, RequiresValuesAndAnExpiryInADictionary) {
  const auto subject = name({attribute(commonName, "Ana")});
  EXPECT_EQ(parsed(std::nullopt), std::nullopt);
  for (const auto& expiry :
       {OptionalCertificateProperty(), notAfter(text("2030-01-01T00:00:00Z")), present({start2030}),
        present({Array{entry("Not Valid After", {start2030})}}),
        present(entry(present(text("Not Valid After")), nullptr))}) {
    EXPECT_EQ(parsed({{subject, subject, expiry}}), std::nullopt);
  }
  EXPECT_NE(parsed({{nullptr, nullptr, present(entry(nullptr, present({start2030})))}}),
            std::nullopt);  // Its label does not matter.
}

TEST(ParserDate, CountsSecondsFrom2001) {
  using Limits = std::numeric_limits<double>;
  constexpr double limit = 30'000 * 31'556'952.0;  // 30,000 years
  const std::vector<std::pair<double, std::optional<Date>>> dates = {
      {0.0, start2001},
      {-1.0, start2001 - 1s},
      {-978307200.0, Date()},
      {915148800.0, start2030},
      {1.25, start2001 + 1250ms},
      {-0.000001, start2001 - 1us},
      {252423993599.0, sys_days(9999y / 12 / 31) + 23h + 59min + 59s},  // Never expires.
      {limit, std::nullopt},
      {-limit, std::nullopt},
      {Limits::infinity(), std::nullopt},
      {Limits::quiet_NaN(), std::nullopt}};
  for (const auto& [number, date] : dates) {
    EXPECT_EQ(Parser::date(present({number})), date) << number;
  }
  EXPECT_NE(Parser::date(present({limit - 1})), std::nullopt);
}

TEST(ParserDate, KeepsADateAndRejectsAnyOtherType) {
  EXPECT_EQ(Parser::date(present({start2030 + 1us})), start2030 + 1us);
  EXPECT_EQ(Parser::date(nullptr), std::nullopt);
  for (const CertificateProperty& value :
       {text("0"), CertificateProperty{Array{{0.0}}}, entry("Not Valid After", {0.0}),
        CertificateProperty()}) {
    EXPECT_EQ(Parser::date(present(value)), std::nullopt);
  }
}

/// Collects the fields of a value in addition to those that were collected before.
Fields collected(const CertificateProperty& value, Fields fields = {}) {
  Parser::collectDistinguishedNameFields(&value, fields);
  return fields;
}

const CertificateProperty ana = attribute(commonName, "Ana");
const Fields anaAlone = {{commonName, "Ana"}};

TEST(ParserName, TakesTheFirstStringThatIsNotEmpty) {
  EXPECT_EQ(collected({Array{attribute(commonName, ""), entry(commonName, {7.0}),
                             entry(commonName, {}), ana, attribute(commonName, "B")}}),
            anaAlone);
  EXPECT_EQ(collected(attribute(commonName, "")), Fields());
  EXPECT_EQ(collected(attribute(commonName, " A\\, B ")), (Fields{{commonName, " A\\, B "}}));
  EXPECT_EQ(collected({Array{attribute(commonName, "B"), attribute(locality, "Lisbon")}}, anaAlone),
            (Fields{{commonName, "Ana"}, {locality, "Lisbon"}}));
}

TEST(ParserName, ComparesLabelsExactly) {
  for (const char* label : {" 2.5.4.3", "2.5.4.3 ", "2.5.4.30", "2.5.4.03", "2.5.4", "CN", ""}) {
    EXPECT_EQ(collected(attribute(label, "Ana")), Fields()) << label;
  }
}

TEST(ParserName, RequiresALabelWithAValue) {
  for (const CertificateProperty& value :
       {text(commonName), CertificateProperty{2.5}, CertificateProperty{start2030},
        CertificateProperty{}, CertificateProperty{Array{}}, entry(nullptr, present(text("A"))),
        entry(present({2.5}), present(text("A"))), entry(present(text(commonName)), nullptr)}) {
    EXPECT_EQ(collected(value), Fields());
  }
}

TEST(ParserName, IsWalkedInOrderAtAnyDepth) {
  CertificateProperty nested = ana;
  for (int depth = 0; depth < 100; ++depth) {
    nested = section("Section", {{Array{nested}}});
  }
  for (const CertificateProperty& value :
       {nested, entry(nullptr, present(ana)), entry(present({2.5}), present({Array{ana}})),
        CertificateProperty{Array{section("S", {ana}), attribute(commonName, "Above")}},
        section(organization, {ana})}) {
    EXPECT_EQ(collected(value), anaAlone);
  }
  EXPECT_EQ(collected(section(commonName, {attribute(locality, "Lisbon")}), anaAlone),
            (Fields{{commonName, "Ana"}, {locality, "Lisbon"}}));
}

constexpr Date now = std::chrono::sys_days(2026y / 6 / 1);

class Loader : public testing::Test {
 protected:
  void add(const std::string& certificate, const std::optional<std::string>& subject,
           Date expiresAt = now + 1h) {
    system.identities.push_back({certificate, valuesNaming(subject, expiresAt)});
  }

  Texts loadIds() {
    Texts ids;
    for (const ClientIdentity& identity : loader.loadIdentities()) {
      ids.push_back(identity.id);
    }
    return ids;
  }

  FakeSystem system;
  KeychainIdentityLoader loader{std::make_shared<FakeServices>(system), [this] {
                                  system.called("now");
                                  return now;
                                }};
};

TEST_F(Loader, ReportsAFailedQuery) {
  const auto cancelled = CertificateSelectorError::keychainFailure(-128);
  system.fail("copyIdentities", cancelled);
  EXPECT_EQ(selectorErrorOf([&] { (void)loadIds(); }), cancelled);
  EXPECT_THAT(system.calls, ElementsAre("copyIdentities"));
}

TEST_F(Loader, DropsUnusableIdentities) {
  const CertificateValues valid = valuesNaming("Ana", now + 1h);
  CertificateValues noExpiry = valid;
  noExpiry.validityNotAfter = notAfter(text("2030"));
  system.identities = {{"keyless", valid, /*hasPrivateKey=*/false},
                       {"bare", valid, true, /*hasCertificate=*/false},
                       {"unreadable", std::nullopt},
                       {"no expiry", noExpiry},
                       {"", valid},  // No bytes.
                       {"expired", valuesNaming("Ana", now)},
                       {"A", valid}};
  EXPECT_THAT(loadIds(), ElementsAre(idOf("A")));
  EXPECT_THAT(system.calls, Contains("now").Times(1));
  EXPECT_THAT(system.calls, Not(Contains("copyCertificate keyless")));
}

TEST_F(Loader, DropsExpiredAtReferenceInstant) {
  add("A", "Ana", now - 1s);
  add("B", "Bea", now);
  add("C", "Carla", now + 1us);
  add("D", "Dora", now + 1s);
  EXPECT_THAT(loadIds(), ElementsAre(idOf("C"), idOf("D")));
}

TEST_F(Loader, JudgesExpiryByTheCurrentTime) {
  const Date current = std::chrono::floor<Date::duration>(std::chrono::system_clock::now());
  add("A", "Ana", current + 1h);
  add("B", "Bea", current);
  EXPECT_EQ(KeychainIdentityLoader(std::make_shared<FakeServices>(system)).loadIdentities().size(),
            1U);
}

TEST_F(Loader, KeepsTheLastOfAFingerprint) {
  add("A", "Earlier");
  add("A", "Later", now + 2h);
  add("A", "Expired", now);
  EXPECT_THAT(loader.loadIdentities(),
              ElementsAre(ClientIdentity{
                  idOf("A"), {"Later", std::nullopt, std::nullopt, std::nullopt}, {}, now + 2h}));
}

TEST_F(Loader, SortsUnnamedByThatName) {
  add("V", "Vera");
  add("E", "");  // Present, and read as absent.
  add("N", std::nullopt);
  add("T", "Tess");
  const Texts ids = loadIds();
  EXPECT_THAT(ids, testing::UnorderedElementsAre(idOf("T"), idOf("E"), idOf("N"), idOf("V")));
  EXPECT_EQ(ids.front(), idOf("T"));
  EXPECT_EQ(ids.back(), idOf("V"));
}

TEST_F(Loader, SortsEqualNamesByFingerprintWhateverTheirCase) {
  for (const auto& [nameB, nameA] :
       {std::pair("Ana", "Ana"), {"", ""}, {"ANA", "ana"}, {"ana", "ANA"}}) {
    system.identities.clear();
    add("B", nameB);
    add("A", nameA);
    EXPECT_THAT(loadIds(), ElementsAre(idOf("A"), idOf("B")));  // 559aead0… and df7e70e5…
  }
  for (int more = 0; more < 40; ++more) {  // So many that a sort is not stable by chance.
    add(std::to_string(more), "Ana");
  }
  const Texts ids = loadIds();
  EXPECT_TRUE(std::ranges::is_sorted(ids));
}

}  // namespace
}  // namespace lumaret::tests
