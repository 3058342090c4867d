// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "Tests/Core/CallLog.hpp"
#include "Tests/Support/Cpp/Case.hpp"
#include "Tests/Support/Cpp/Principals.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Error = CertificateSelectorError;
using Service = ChromeCertificatePolicyService;
using Rules = std::vector<std::string>;

ClientIdentity identityOf(CertificatePrincipal subject, CertificatePrincipal issuer = noFields) {
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

TEST(EncodedRule, HoldsSubjectAndIssuer) {
  EXPECT_EQ(
      Service::encodedRule(
          identityOf({"Ana Example", "Example Org", "Sales/East", std::nullopt},
                     {"Example Issuing CA", "Example Trust", std::nullopt, std::nullopt})),
      R"({"filter":{"ISSUER":{"CN":"Example Issuing CA","O":"Example Trust"},)"
      R"("SUBJECT":{"CN":"Ana Example","O":"Example Org","OU":"Sales/East"}},"pattern":"*"})");
}

TEST(EncodedRule, SortsTheKeysOfEveryObject) {
  EXPECT_EQ(Service::encodedRule(identityOf({"a", "b", "c", "d"}, {"e", "f", "g", "h"})),
            R"({"filter":{"ISSUER":{"CN":"e","L":"h","O":"f","OU":"g"},)"
            R"("SUBJECT":{"CN":"a","L":"d","O":"b","OU":"c"}},"pattern":"*"})");
}

TEST(EncodedRule, HoldsOnlyTheSubjectWhenTheIssuerHasNoFilterFields) {
  EXPECT_EQ(Service::encodedRule(identityOf({"Ana", "", std::nullopt, std::nullopt}, noFields)),
            ruleNaming("Ana"));
  EXPECT_EQ(Service::encodedRule(identityOf({"Ana", "", "", ""}, {"", "", "", ""})),
            ruleNaming("Ana"));
}

TEST(EncodedRule, FailsWithoutSubjectFieldsEvenWhenTheIssuerHasSome) {
  EXPECT_EQ(encodingErrorOf(identityOf(noFields, {"Example CA", "Example Trust", "", ""})),
            Error::certificateHasNoSubject());
}

TEST(EncodedRule, FailsWhenEverySubjectFieldIsEmpty) {
  EXPECT_EQ(encodingErrorOf(identityOf({"", "", "", ""})), Error::certificateHasNoSubject());
}

TEST(EncodedRule, AMissingSubjectIsReportedBeforeAnIssuerThatCannotBeEncoded) {
  EXPECT_EQ(encodingErrorOf(identityOf(noFields, {"\xff", "", "", ""})),
            Error::certificateHasNoSubject());
}

TEST(EncodedRule, WritesASlashAsItself) {
  EXPECT_EQ(Service::encodedRule(named("R/D")), ruleNaming("R/D"));
}

TEST(EncodedRule, EscapesAQuotationMark) {
  EXPECT_EQ(Service::encodedRule(named("Ana \"Nita\"")), ruleNaming("Ana \\\"Nita\\\""));
}

TEST(EncodedRule, EscapesABackslash) {
  EXPECT_EQ(Service::encodedRule(named("CORP\\ana")), ruleNaming("CORP\\\\ana"));
}

TEST(EncodedRule, KeepsBlanks) {
  EXPECT_EQ(Service::encodedRule(named("  Ana ")), ruleNaming("  Ana "));
}

TEST(EncodedRule, WritesCharactersOutsideASCIIAsThemselves) {
  for (const char* text : {"Añá Жук", "日本", "👩‍💻🏳️‍🌈", "אבג ابج", "\u202eRTL",
                           "e\u0301", "\u2028", "\ufeff", "\U0010ffff"}) {
    EXPECT_EQ(Service::encodedRule(named(text)), ruleNaming(text));
  }
}

TEST(EncodedRule, EscapesControlCharacters) {
  EXPECT_EQ(Service::encodedRule(named("\x01\x1f\b\t\n\f\r")),
            ruleNaming(R"(\u0001\u001f\b\t\n\f\r)"));
  EXPECT_EQ(Service::encodedRule(named(std::string("a\0b", 3))), ruleNaming(R"(a\u0000b)"));
}

TEST(EncodedRule, WritesDeleteAsItself) {
  EXPECT_EQ(Service::encodedRule(named("\x7f")), ruleNaming("\x7f"));
}

using TextCase = Case<std::string>;

class MalformedUTF8 : public testing::TestWithParam<TextCase> {};

TEST_P(MalformedUTF8, CannotBeEncodedInTheSubject) {
  EXPECT_EQ(encodingErrorOf(named("Ana" + GetParam().value)), Error::policyEncodingFailed());
}

TEST_P(MalformedUTF8, CannotBeEncodedInTheIssuer) {
  EXPECT_EQ(encodingErrorOf(identityOf({"Ana", "", "", ""}, {"", GetParam().value, "", ""})),
            Error::policyEncodingFailed());
}

TEST_P(MalformedUTF8, LeavesAStoredRuleWithoutAPattern) {
  EXPECT_EQ(Service::rulePattern(R"({"name":")" + GetParam().value + R"(","pattern":"*"})"),
            std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(
    Text, MalformedUTF8,
    testing::Values(TextCase{"ByteOfNoSequence", "\xff"}, TextCase{"LoneContinuation", "\x80"},
                    TextCase{"TruncatedPair", "\xc3"}, TextCase{"TruncatedTriple", "\xe2\x82"},
                    TextCase{"Overlong", "\xc0\xaf"}, TextCase{"Surrogate", "\xed\xa0\x80"},
                    TextCase{"BeyondUnicode", "\xf4\x90\x80\x80"}),
    caseName);

TEST(RulePattern, IsTheStoredText) {
  EXPECT_EQ(Service::rulePattern(R"({"pattern":"https://a.example","filter":{}})"),
            "https://a.example");
}

TEST(RulePattern, IsNeitherTrimmedNorLowerCased) {
  EXPECT_EQ(Service::rulePattern(R"({"pattern":" HTTPS://A.example "})"), " HTTPS://A.example ");
  EXPECT_EQ(Service::rulePattern(R"({"pattern":""})"), "");
}

TEST(RulePattern, IsReadThroughEscapesAndWhiteSpace) {
  EXPECT_EQ(Service::rulePattern(" \r\n{ \"pattern\" :\t\"\\u002a\" } "), "*");
}

TEST(RulePattern, IsReadAfterAByteOrderMark) {
  EXPECT_EQ(Service::rulePattern("\ufeff{\"pattern\":\"*\"}"), "*");
}

TEST(RulePattern, IsReadBesideDeepNesting) {
  const std::size_t depth = 100'000;
  EXPECT_EQ(Service::rulePattern(R"({"filter":)" + std::string(depth, '[') +
                                 std::string(depth, ']') + R"(,"pattern":"*"})"),
            "*");
}

TEST(RulePattern, IsAbsentFromTextThatOnlyNestsDeeply) {
  const std::size_t depth = 100'000;
  EXPECT_EQ(Service::rulePattern(std::string(depth, '[') + std::string(depth, ']')), std::nullopt);
  EXPECT_EQ(Service::rulePattern(std::string(depth, '[')), std::nullopt);
}

TEST(RulePattern, IsTheCatchAllInAnEncodedRule) {
  EXPECT_EQ(Service::rulePattern(Service::encodedRule(named("Ana"))), "*");
}

class RuleWithoutPattern : public testing::TestWithParam<TextCase> {};

TEST_P(RuleWithoutPattern, HasNoPattern) {
  EXPECT_EQ(Service::rulePattern(GetParam().value), std::nullopt);
}

TEST_P(RuleWithoutPattern, IsKept) {
  const std::string& rule = GetParam().value;
  EXPECT_THAT(Service::replacingRule("new", {rule}), ElementsAre(rule, "new"));
}

INSTANTIATE_TEST_SUITE_P(
    NotJSON, RuleWithoutPattern,
    testing::Values(TextCase{"Empty", ""}, TextCase{"Blank", " "}, TextCase{"Words", "not JSON"},
                    TextCase{"Unclosed", R"({"pattern":"*")"},
                    TextCase{"Junk", R"({"pattern":"*"} junk)"},
                    TextCase{"TwoRules", R"({"pattern":"*"}{"pattern":"*"})"},
                    TextCase{"TrailingComma", R"({"pattern":"*",})"},
                    TextCase{"BareKey", R"({pattern:"*"})"},
                    TextCase{"SingleQuotes", R"({'pattern':'*'})"},
                    TextCase{"Comment", R"(/* */{"pattern":"*"})"},
                    TextCase{"NotANumber", R"({"pattern":"*","filter":NaN})"},
                    TextCase{"BareLineFeed", "{\"pattern\":\"*\",\"name\":\"\n\"}"},
                    TextCase{"LoneSurrogate", R"({"pattern":"*","name":"\ud800"})"},
                    TextCase{"TrailingNull", std::string("{\"pattern\":\"*\"}\0", 16)},
                    TextCase{"JunkAfterNull", std::string("{\"pattern\":\"*\"}\0junk", 20)}),
    caseName);

INSTANTIATE_TEST_SUITE_P(NotAnObject, RuleWithoutPattern,
                         testing::Values(TextCase{"ArrayOfRules", R"([{"pattern":"*"}])"},
                                         TextCase{"Array", R"(["pattern","*"])"},
                                         TextCase{"Text", R"("*")"}, TextCase{"Number", "7"},
                                         TextCase{"Null", "null"}, TextCase{"Boolean", "true"}),
                         caseName);

INSTANTIATE_TEST_SUITE_P(NoTextAsPattern, RuleWithoutPattern,
                         testing::Values(TextCase{"EmptyObject", "{}"},
                                         TextCase{"OnlyAFilter", R"({"filter":{}})"},
                                         TextCase{"Capital", R"({"Pattern":"*"})"},
                                         TextCase{"Nested", R"({"filter":{"pattern":"*"}})"},
                                         TextCase{"Number", R"({"pattern":7})"},
                                         TextCase{"Null", R"({"pattern":null})"},
                                         TextCase{"Array", R"({"pattern":["*"]})"},
                                         TextCase{"Object", R"({"pattern":{"pattern":"*"}})"}),
                         caseName);

const std::string catchAll = R"({"filter":{"SUBJECT":{"CN":"Old"}},"pattern":"*"})";
const std::string otherCatchAll = R"({"pattern":"*","filter":{}})";
const std::string site = R"({"pattern":"https://a.example","filter":{}})";

TEST(ReplacingRule, AnEmptyListBecomesTheNewRuleAlone) {
  EXPECT_THAT(Service::replacingRule("new", {}), ElementsAre("new"));
}

TEST(ReplacingRule, WithoutACatchAllTheNewRuleIsAppended) {
  EXPECT_THAT(Service::replacingRule("new", {site, "not JSON"}),
              ElementsAre(site, "not JSON", "new"));
}

TEST(ReplacingRule, TheNewRuleTakesTheFirstCatchAllsPlaceAndTheOthersGo) {
  EXPECT_THAT(Service::replacingRule("new", {site, catchAll, "not JSON", otherCatchAll}),
              ElementsAre(site, "new", "not JSON"));
}

TEST(ReplacingRule, MergingTheSameRuleAgainChangesNothing) {
  const std::string rule = Service::encodedRule(named("Ana"));
  const Rules once = Service::replacingRule(rule, {site, catchAll, "not JSON"});
  EXPECT_THAT(once, ElementsAre(site, rule, "not JSON"));
  EXPECT_EQ(Service::replacingRule(rule, once), once);
}

TEST(ReplacingRule, OnlyASingleAsteriskIsACatchAll) {
  for (const char* pattern : {" *", "* ", "**", "", "*\\u0000", "https://*", "\\\\u002a"}) {
    const std::string rule = R"({"pattern":")" + std::string(pattern) + R"("})";
    EXPECT_THAT(Service::replacingRule("new", {rule}), ElementsAre(rule, "new"));
  }
}

TEST(ReplacingRule, AnEscapedAsteriskIsACatchAll) {
  EXPECT_THAT(Service::replacingRule("new", {R"({"pattern":"\u002a"})"}), ElementsAre("new"));
}

TEST(ReplacingRule, TheNewRulesOwnPatternDoesNotMatter) {
  EXPECT_THAT(Service::replacingRule(site, {site, catchAll}), ElementsAre(site, site));
}

TEST(ReplacingRule, KeepsDuplicatesAndOrderOfTheOtherRules) {
  EXPECT_THAT(Service::replacingRule("new", {"b", site, "a", "b", catchAll, catchAll, site}),
              ElementsAre("b", site, "a", "b", "new", site));
}

/// Chrome's preferences in memory. Each operation is logged. A hook then replaces what it does.
class FakePreferences final : public ChromePreferencesStoring {
 public:
  explicit FakePreferences(Rules rules) : rules_(std::move(rules)) {}

  [[nodiscard]] Rules readRules() const override {
    log_.emplace_back("readRules");
    const auto readsBefore = std::count(log_.begin(), log_.end(), "readRules") - 1;
    const auto& hook = readsBefore == 0 ? onFirstRead : onSecondRead;
    return hook ? hook() : rules_;
  }

  void writeRules(const Rules& rules) override {
    log_.push_back("writeRules " + listed(rules));
    if (onWrite) {
      onWrite();
    }
    rules_ = rules;
  }

  [[nodiscard]] bool synchronize() override {
    log_.emplace_back("synchronize");
    return synchronizes;
  }

  [[nodiscard]] const CallLog& log() const { return log_; }
  [[nodiscard]] const Rules& rules() const { return rules_; }

  std::function<Rules()> onFirstRead;
  std::function<Rules()> onSecondRead;
  std::function<void()> onWrite;
  bool synchronizes = true;

 private:
  Rules rules_;
  mutable CallLog log_;
};

std::shared_ptr<FakePreferences> preferencesHolding(Rules rules) {
  return std::make_shared<FakePreferences>(std::move(rules));
}

std::optional<Error> errorOfApplying(const ClientIdentity& identity,
                                     const std::shared_ptr<FakePreferences>& preferences) {
  return selectorErrorOf([&] { Service(preferences).apply(identity); });
}

const std::string anaRule = ruleNaming("Ana");

TEST(ApplyPolicy, ReadsMergesWritesSynchronizesAndReadsBack) {
  const auto preferences = preferencesHolding({site, catchAll, "not JSON"});
  Service(preferences).apply(named("Ana"));
  EXPECT_THAT(preferences->log(),
              ElementsAre("readRules", "writeRules [" + site + ", " + anaRule + ", not JSON]",
                          "synchronize", "readRules"));
}

TEST(ApplyPolicy, WithNothingStoredTheNewRuleIsStoredAlone) {
  const auto preferences = preferencesHolding({});
  Service(preferences).apply(named("Ana"));
  EXPECT_THAT(preferences->rules(), ElementsAre(anaRule));
}

TEST(ApplyPolicy, TheSameIdentityTwiceStoresTheSameListTwice) {
  const auto first = preferencesHolding({site, catchAll});
  Service(first).apply(named("Ana"));
  const auto second = preferencesHolding(first->rules());
  Service(second).apply(named("Ana"));
  EXPECT_THAT(first->rules(), ElementsAre(site, anaRule));
  EXPECT_EQ(second->rules(), first->rules());
}

TEST(ApplyPolicy, AListThatStaysTheSameIsStillWritten) {
  const auto preferences = preferencesHolding({anaRule});
  Service(preferences).apply(named("Ana"));
  EXPECT_THAT(preferences->log(),
              ElementsAre("readRules", "writeRules [" + anaRule + "]", "synchronize", "readRules"));
}

TEST(ApplyPolicy, WithoutSubjectFieldsThePreferencesAreNotTouched) {
  const auto preferences = preferencesHolding({});
  EXPECT_EQ(errorOfApplying(identityOf(noFields), preferences), Error::certificateHasNoSubject());
  EXPECT_THAT(preferences->log(), IsEmpty());
}

TEST(ApplyPolicy, WithASubjectThatCannotBeEncodedThePreferencesAreNotTouched) {
  const auto preferences = preferencesHolding({});
  EXPECT_EQ(errorOfApplying(named("\xff"), preferences), Error::policyEncodingFailed());
  EXPECT_THAT(preferences->log(), IsEmpty());
}

TEST(ApplyPolicy, AStoredValueThatIsNotAListOfStringsIsNeverOverwritten) {
  const auto preferences = preferencesHolding({});
  preferences->onFirstRead = []() -> Rules { throw ChromePreferencesError(); };
  EXPECT_EQ(errorOfApplying(named("Ana"), preferences), Error::policyWriteFailed());
  EXPECT_THAT(preferences->log(), ElementsAre("readRules"));
}

TEST(ApplyPolicy, AnyOtherFailureToReadIsAFailureToWrite) {
  const auto preferences = preferencesHolding({});
  preferences->onFirstRead = []() -> Rules { throw std::runtime_error("No such device"); };
  EXPECT_EQ(errorOfApplying(named("Ana"), preferences), Error::policyWriteFailed());
  EXPECT_THAT(preferences->log(), ElementsAre("readRules"));
}

TEST(ApplyPolicy, ARefusedListIsNotSynchronized) {
  const auto preferences = preferencesHolding({});
  preferences->onWrite = [] { throw std::runtime_error("Read-only file system"); };
  EXPECT_EQ(errorOfApplying(named("Ana"), preferences), Error::policyWriteFailed());
  EXPECT_THAT(preferences->log(), ElementsAre("readRules", "writeRules [" + anaRule + "]"));
}

TEST(ApplyPolicy, AFailedSynchronizationIsNotVerifiedAndNothingIsUndone) {
  const auto preferences = preferencesHolding({});
  preferences->synchronizes = false;
  EXPECT_EQ(errorOfApplying(named("Ana"), preferences), Error::policyWriteFailed());
  EXPECT_THAT(preferences->log(),
              ElementsAre("readRules", "writeRules [" + anaRule + "]", "synchronize"));
  EXPECT_THAT(preferences->rules(), ElementsAre(anaRule));
}

TEST(ApplyPolicy, AValueThatCannotBeReadBackIsNotVerified) {
  const auto preferences = preferencesHolding({});
  preferences->onSecondRead = []() -> Rules { throw ChromePreferencesError(); };
  EXPECT_EQ(errorOfApplying(named("Ana"), preferences), Error::policyVerificationFailed());
}

TEST(ApplyPolicy, AnyOtherFailureToReadBackIsAFailureToVerify) {
  const auto preferences = preferencesHolding({});
  preferences->onSecondRead = []() -> Rules { throw std::bad_alloc(); };
  EXPECT_EQ(errorOfApplying(named("Ana"), preferences), Error::policyVerificationFailed());
}

TEST(ApplyPolicy, AnythingElseThatIsThrownIsMappedLikeAnException) {
  const auto reading = preferencesHolding({});
  reading->onFirstRead = []() -> Rules { throw 7; };
  EXPECT_EQ(errorOfApplying(named("Ana"), reading), Error::policyWriteFailed());
  const auto writing = preferencesHolding({});
  writing->onWrite = [] { throw 7; };
  EXPECT_EQ(errorOfApplying(named("Ana"), writing), Error::policyWriteFailed());
  const auto readingBack = preferencesHolding({});
  readingBack->onSecondRead = []() -> Rules { throw 7; };
  EXPECT_EQ(errorOfApplying(named("Ana"), readingBack), Error::policyVerificationFailed());
}

TEST(ApplyPolicy, TheSameRulesInAnotherOrderAreNotVerified) {
  const auto preferences = preferencesHolding({site});
  preferences->onSecondRead = [] { return Rules{anaRule, site}; };
  EXPECT_EQ(errorOfApplying(named("Ana"), preferences), Error::policyVerificationFailed());
}

TEST(ApplyPolicy, AnyDifferenceInWhatIsReadBackIsNotVerified) {
  for (const Rules& stored : {Rules{}, Rules{site}, Rules{site, anaRule, anaRule},
                              Rules{site, anaRule + " "}, Rules{site, catchAll}}) {
    const auto preferences = preferencesHolding({site});
    preferences->onSecondRead = [stored] { return stored; };
    EXPECT_EQ(errorOfApplying(named("Ana"), preferences), Error::policyVerificationFailed())
        << listed(stored);
  }
}

// What the rule service accepts

TEST(IsEncodedRule, IsWhatEncodedRuleMakes) {
  for (const ClientIdentity& identity :
       {named("Ana"), named("R/D \"\\ \n"), named("\u00e1 \U0001f600"),
        identityOf({"a", "b", "c", "d"}, {"e", "f", "g", "h"}),
        identityOf({std::nullopt, std::nullopt, "c", std::nullopt},
                   {std::nullopt, "f", std::nullopt, std::nullopt})}) {
    EXPECT_TRUE(Service::isEncodedRule(Service::encodedRule(identity)));
  }
}

class OtherRule : public testing::TestWithParam<TextCase> {};

TEST_P(OtherRule, IsNotAnEncodedRule) { EXPECT_FALSE(Service::isEncodedRule(GetParam().value)); }

INSTANTIATE_TEST_SUITE_P(
    Rules, OtherRule,
    testing::Values(
        TextCase{"Empty", ""}, TextCase{"NotJSON", "not JSON"}, TextCase{"Array", "[]"},
        TextCase{"Text", R"("*")"}, TextCase{"NoMembers", "{}"},
        TextCase{"NoFilter", R"({"pattern":"*"})"},
        TextCase{"EmptyFilter", R"({"filter":{},"pattern":"*"})"},
        TextCase{"FilterOfAnotherType", R"({"filter":["SUBJECT"],"pattern":"*"})"},
        TextCase{"EmptySubject", R"({"filter":{"SUBJECT":{}},"pattern":"*"})"},
        TextCase{"SubjectOfAnotherType", R"({"filter":{"SUBJECT":"CN"},"pattern":"*"})"},
        TextCase{"EmptyField", R"({"filter":{"SUBJECT":{"CN":""}},"pattern":"*"})"},
        TextCase{"OneEmptyField", R"({"filter":{"SUBJECT":{"CN":"Ana","O":""}},"pattern":"*"})"},
        TextCase{"FieldOfAnotherType", R"({"filter":{"SUBJECT":{"CN":1}},"pattern":"*"})"},
        TextCase{"OtherField", R"({"filter":{"SUBJECT":{"C":"ES","CN":"Ana"}},"pattern":"*"})"},
        TextCase{"IssuerAlone", R"({"filter":{"ISSUER":{"CN":"CA"}},"pattern":"*"})"},
        TextCase{"EmptyIssuer", R"({"filter":{"ISSUER":{},"SUBJECT":{"CN":"Ana"}},"pattern":"*"})"},
        TextCase{"OtherMemberOfFilter",
                 R"({"filter":{"OTHER":{"CN":"CA"},"SUBJECT":{"CN":"Ana"}},"pattern":"*"})"},
        TextCase{"OtherMember", R"({"a":1,"filter":{"SUBJECT":{"CN":"Ana"}},"pattern":"*"})"},
        TextCase{"OtherPattern",
                 R"({"filter":{"SUBJECT":{"CN":"Ana"}},"pattern":"https://elsewhere.test"})"},
        TextCase{"NoPattern", R"({"filter":{"SUBJECT":{"CN":"Ana"}}})"},
        TextCase{"OtherOrder", R"({"pattern":"*","filter":{"SUBJECT":{"CN":"Ana"}}})"},
        TextCase{"Blank", R"({"filter":{"SUBJECT":{"CN":"Ana"}}, "pattern":"*"})"},
        TextCase{"BlankAfter", R"({"filter":{"SUBJECT":{"CN":"Ana"}},"pattern":"*"} )"},
        TextCase{"EscapedLetter", R"({"filter":{"SUBJECT":{"CN":"An\u0061"}},"pattern":"*"})"},
        TextCase{"FieldTwice", R"({"filter":{"SUBJECT":{"CN":"Ana","CN":"Ana"}},"pattern":"*"})"},
        TextCase{"NotUTF8", "{\"filter\":{\"SUBJECT\":{\"CN\":\"\xff\"}},\"pattern\":\"*\"}"}),
    caseName);

TEST(IsEncodedRule, EndsWithTheText) {
  EXPECT_FALSE(Service::isEncodedRule(ruleNaming("Ana") + '\0'));
}

// What taking the rule back leaves

TEST(WithdrawingRule, LeavesNothingOfTheTool) {
  EXPECT_EQ(Service::withdrawingRule({}, {}), Rules());
  EXPECT_EQ(Service::withdrawingRule({ruleNaming("Ana")}, {}), Rules());
  EXPECT_EQ(Service::withdrawingRule({ruleNaming("Ana"), R"({"pattern":"*"})"}, {}), Rules());
}

TEST(WithdrawingRule, LeavesTheOtherListInForce) {
  EXPECT_EQ(Service::withdrawingRule({site, ruleNaming("Ana")}, {site}), Rules());
  EXPECT_EQ(Service::withdrawingRule({ruleNaming("Ana")}, {ruleNaming("Ben"), site}), Rules());
}

TEST(WithdrawingRule, KeepsRulesForSitesThatStandNowhereElse) {
  const std::string other = R"({"pattern":"https://other.test"})";
  EXPECT_EQ(Service::withdrawingRule({other, ruleNaming("Ana"), "not JSON"}, {}),
            Rules({other, "not JSON"}));
  EXPECT_EQ(Service::withdrawingRule({other, site, ruleNaming("Ana")}, {site, ruleNaming("Ben")}),
            Rules({site, ruleNaming("Ben"), other}));
}

}  // namespace
}  // namespace lumaret::tests
