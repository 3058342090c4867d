// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "Tests/Core/FakeSystem.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"

namespace lumaret::tests {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Error = CertificateSelectorError;
using Service = ChromeCertificatePolicyService;

ClientIdentity identityOf(CertificatePrincipal subject, CertificatePrincipal issuer = {}) {
  return {"5d2a", std::move(subject), std::move(issuer), Date()};
}

ClientIdentity named(const std::string& commonName) {
  return identityOf({commonName, std::nullopt, std::nullopt, std::nullopt});
}

/// The rule of an identity that has only this common name, written as JSON.
std::string ruleNaming(const std::string& commonName) {
  return R"({"filter":{"SUBJECT":{"CN":")" + commonName + R"("}},"pattern":"*"})";
}

std::optional<Error> encodingErrorOf(const ClientIdentity& identity) {
  return selectorErrorOf([&] { (void)Service::encodedRule(identity); });
}

TEST(EncodedRule, SortsTheKeysOfEveryObject) {
  EXPECT_EQ(Service::encodedRule(identityOf({"a", "b", "c", "d"}, {"e", "f", "g", "h"})),
            R"({"filter":{"ISSUER":{"CN":"e","L":"h","O":"f","OU":"g"},)"
            R"("SUBJECT":{"CN":"a","L":"d","O":"b","OU":"c"}},"pattern":"*"})");
}

TEST(EncodedRule, LeavesOutEmptyFieldsAndAnEmptyIssuer) {
  EXPECT_EQ(Service::encodedRule(identityOf({"Ana", "", std::nullopt, ""})), ruleNaming("Ana"));
  EXPECT_EQ(Service::encodedRule(identityOf({"Ana", "", "", ""}, {"", "", "", ""})),
            ruleNaming("Ana"));
}

TEST(EncodedRule, RequiresASubjectFirst) {
  EXPECT_EQ(encodingErrorOf(identityOf({}, {"CA", "Trust", "", ""})),
            Error::certificateHasNoSubject());
  EXPECT_EQ(encodingErrorOf(identityOf({"", "", "", ""}, {"\xff", "", "", ""})),
            Error::certificateHasNoSubject());
}

TEST(EncodedRule, EscapesOnlyQuotesBackslashesAndControls) {
  for (const char* text : {"R/D", "  Ana ", "\x7f", "Añá Жук", "日本", "👩‍💻🏳️‍🌈",
                           "אבג ابج", "\u202eRTL", "e\u0301", "\u2028", "\ufeff", "\U0010ffff"}) {
    EXPECT_EQ(Service::encodedRule(named(text)), ruleNaming(text));
  }
  EXPECT_EQ(Service::encodedRule(named("CORP\\ana \"Nita\"")), ruleNaming(R"(CORP\\ana \"Nita\")"));
  EXPECT_EQ(Service::encodedRule(named({"\0\x01\x1f\b\t\n\f\r", 8})),
            ruleNaming(R"(\u0000\u0001\u001f\b\t\n\f\r)"));
}

TEST(EncodedRule, RejectsMalformedUTF8) {
  for (const char* text :
       {"\xff", "\x80", "\xc3", "\xe2\x82", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80"}) {
    EXPECT_EQ(encodingErrorOf(named(std::string("Ana") + text)), Error::policyEncodingFailed());
    EXPECT_EQ(encodingErrorOf(identityOf({"Ana", "", "", ""}, {"", text, "", ""})),
              Error::policyEncodingFailed());
    EXPECT_EQ(Service::rulePattern(R"({"name":")" + std::string(text) + R"(","pattern":"*"})"),
              std::nullopt);
  }
}

/// As deep as would exhaust the stack of a recursive parser.
std::string nested(char bracket) { return std::string(100'000, bracket); }

TEST(RulePattern, IsTheStoredText) {
  for (const auto& [rule, pattern] : std::map<std::string, std::string>{
           {R"({"pattern":"https://a.example","filter":{}})", "https://a.example"},
           {R"({"pattern":" HTTPS://A.example "})", " HTTPS://A.example "},
           {" \r\n{ \"pattern\" :\t\"\\u002a\" } ", "*"},
           {"\ufeff{\"pattern\":\"*\"}", "*"},
           {R"({"pattern":"*","pattern":"https://a.example"})", "https://a.example"},
           {R"({"n":)" + nested('[') + nested(']') + R"(,"pattern":"*"})", "*"}}) {
    EXPECT_EQ(Service::rulePattern(rule), pattern);
  }
}

TEST(RulePattern, IsAbsentFromAnythingElse) {
  Texts rules = words(R"(
      {"pattern":"*"  {"pattern":"*"}junk  {"pattern":"*",}  {pattern:"*"}  /**/{"pattern":"*"}
      {"pattern":"*","name":"\ud800"}  {"pattern":"*","n":1e999}  {"pattern":"*","pattern":7}
      [{"pattern":"*"}]  ["pattern","*"]  "*"  7  null
      {}  {"Pattern":"*"}  {"filter":{"pattern":"*"}}  {"pattern":7}  {"pattern":["*"]})");
  rules.insert(rules.end(), {"", "not JSON", std::string("{\"pattern\":\"*\"}\0junk", 20),
                             nested('[') + nested(']'), nested('[')});
  for (const std::string& rule : rules) {
    EXPECT_EQ(Service::rulePattern(rule), std::nullopt) << rule.substr(0, 50);
  }
}

const std::string catchAll = R"({"filter":{"SUBJECT":{"CN":"Old"}},"pattern":"*"})";
const std::string otherCatchAll = R"({"pattern":"\u002a","filter":{}})";
const std::string site = R"({"pattern":"https://a.example","filter":{}})";

TEST(ReplacingRule, AppendsToAListWithoutACatchAll) {
  EXPECT_THAT(Service::replacingRule("new", {}), ElementsAre("new"));
  EXPECT_THAT(Service::replacingRule("new", {site, "not JSON"}),
              ElementsAre(site, "not JSON", "new"));
  EXPECT_THAT(Service::replacingRule(site, {site}), ElementsAre(site, site));
}

TEST(ReplacingRule, ReplacesTheFirstCatchAllAndDropsTheOthers) {
  EXPECT_THAT(Service::replacingRule("new", {"b", site, catchAll, "a", "b", otherCatchAll, site}),
              ElementsAre("b", site, "new", "a", "b", site));
}

TEST(ReplacingRule, TakesOnlyASingleAsteriskForACatchAll) {
  for (const char* pattern : {" *", "* ", "**", "", "*\\u0000", "https://*", "\\\\u002a"}) {
    const std::string rule = R"({"pattern":")" + std::string(pattern) + R"("})";
    EXPECT_THAT(Service::replacingRule("new", {rule}), ElementsAre(rule, "new"));
  }
}

const std::string anaRule = ruleNaming("Ana");

class ApplyPolicy : public testing::Test {
 protected:
  std::optional<Error> errorOf(const ClientIdentity& identity = named("Ana")) {
    system.calls.clear();
    system.isWritten = false;
    return selectorErrorOf(
        [&] { Service(std::make_shared<FakeServices>(system)).apply(identity); });
  }

  FakeSystem system;
};

TEST_F(ApplyPolicy, ReadsMergesWritesSynchronizesAndReadsBack) {
  system.rules = {site, catchAll, "not JSON"};
  const std::string write = "writeRules [" + site + ", " + anaRule + ", not JSON]";
  EXPECT_EQ(errorOf(), std::nullopt);
  EXPECT_THAT(system.calls, ElementsAre("readRules", write, "synchronize", "readBack"));
  EXPECT_EQ(errorOf(), std::nullopt);  // A list that stays the same is written too.
  EXPECT_THAT(system.calls, ElementsAre("readRules", write, "synchronize", "readBack"));
}

TEST_F(ApplyPolicy, TouchesNothingWithoutARule) {
  EXPECT_EQ(errorOf(identityOf({})), Error::certificateHasNoSubject());
  EXPECT_THAT(system.calls, IsEmpty());
  EXPECT_EQ(errorOf(named("\xff")), Error::policyEncodingFailed());
  EXPECT_THAT(system.calls, IsEmpty());
}

TEST_F(ApplyPolicy, EndsAtTheFirstFailure) {
  for (const auto& [call, error] :
       std::map<std::string, Error>{{"readRules", Error::policyWriteFailed()},
                                    {"writeRules [" + anaRule + "]", Error::policyWriteFailed()},
                                    {"synchronize", Error::policyWriteFailed()},
                                    {"readBack", Error::policyVerificationFailed()}}) {
    system = {};
    system.fail(call, ChromePreferencesError());
    EXPECT_EQ(errorOf(), error) << call;
    EXPECT_EQ(system.calls.back(), call);
    system.fail(call, 7);
    EXPECT_EQ(errorOf(), error) << call;
  }
}

TEST_F(ApplyPolicy, NeitherVerifiesNorUndoesWhatIsNotSynchronized) {
  system.synchronizes = false;
  EXPECT_EQ(errorOf(), Error::policyWriteFailed());
  EXPECT_EQ(system.calls.back(), "synchronize");
  EXPECT_THAT(system.rules, ElementsAre(anaRule));
}

TEST_F(ApplyPolicy, RequiresWhatIsReadBackToBeWhatWasWritten) {
  for (const Texts& stored :
       {Texts{}, Texts{site}, Texts{anaRule, site}, Texts{site, anaRule, anaRule},
        Texts{site, anaRule + " "}, Texts{site, catchAll}}) {
    system.rules = {site};
    system.otherRules = stored;
    EXPECT_EQ(errorOf(), Error::policyVerificationFailed()) << listed(stored);
  }
}

TEST(IsEncodedRule, AcceptsWhatEncodedRuleMakes) {
  for (const ClientIdentity& identity :
       {named("Ana"), named("R/D \"\\ \n"), named("\u00e1 \U0001f600"),
        identityOf({"a", "b", "c", "d"}, {"e", "f", "g", "h"}),
        identityOf({std::nullopt, std::nullopt, "c", std::nullopt},
                   {std::nullopt, "f", std::nullopt, std::nullopt})}) {
    EXPECT_TRUE(Service::isEncodedRule(Service::encodedRule(identity)));
  }
}

TEST(IsEncodedRule, RejectsAnyOther) {
  Texts rules = words(R"(
      []  "*"  {}  {"pattern":"*"}  {"filter":{},"pattern":"*"}
      {"filter":["SUBJECT"],"pattern":"*"}  {"filter":{"SUBJECT":{}},"pattern":"*"}
      {"filter":{"SUBJECT":"CN"},"pattern":"*"}  {"filter":{"SUBJECT":{"CN":1}},"pattern":"*"}
      {"filter":{"SUBJECT":{"CN":"Ana","O":""}},"pattern":"*"}
      {"filter":{"SUBJECT":{"C":"ES","CN":"Ana"}},"pattern":"*"}
      {"filter":{"ISSUER":{"CN":"CA"}},"pattern":"*"}
      {"filter":{"ISSUER":{},"SUBJECT":{"CN":"Ana"}},"pattern":"*"}
      {"filter":{"OTHER":{"CN":"CA"},"SUBJECT":{"CN":"Ana"}},"pattern":"*"}
      {"a":1,"filter":{"SUBJECT":{"CN":"Ana"}},"pattern":"*"}
      {"filter":{"SUBJECT":{"CN":"Ana"}},"pattern":"https://elsewhere.test"}
      {"filter":{"SUBJECT":{"CN":"Ana"}}}  {"pattern":"*","filter":{"SUBJECT":{"CN":"Ana"}}}
      {"filter":{"SUBJECT":{"CN":"An\u0061"}},"pattern":"*"}
      {"filter":{"SUBJECT":{"CN":"Ana","CN":"Ana"}},"pattern":"*"})");
  rules.insert(rules.end(), {"", "not JSON", anaRule + " ", anaRule + '\0', ruleNaming("\xff"),
                             R"({"filter":{"SUBJECT":{"CN":"Ana"}}, "pattern":"*"})"});
  for (const std::string& rule : rules) {
    EXPECT_FALSE(Service::isEncodedRule(rule)) << rule;
  }
}

TEST(WithdrawingRule, LeavesTheOtherListAlone) {
  EXPECT_EQ(Service::withdrawingRule({}, {}), Texts());
  EXPECT_EQ(Service::withdrawingRule({anaRule, R"({"pattern":"*"})"}, {}), Texts());
  EXPECT_EQ(Service::withdrawingRule({site, anaRule}, {ruleNaming("Ben"), site}), Texts());
}

TEST(WithdrawingRule, KeepsSitesThatOnlyItHas) {
  const std::string other = R"({"pattern":"https://other.test"})";
  EXPECT_EQ(Service::withdrawingRule({other, anaRule, "not JSON"}, {}), Texts({other, "not JSON"}));
  EXPECT_EQ(Service::withdrawingRule({other, site, anaRule}, {site, ruleNaming("Ben")}),
            Texts({site, ruleNaming("Ben"), other}));
}

}  // namespace
}  // namespace lumaret::tests
