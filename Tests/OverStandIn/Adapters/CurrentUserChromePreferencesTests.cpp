// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"
#include "Tests/Support/Cpp/Case.hpp"
#include "Tests/Support/Cpp/Principals.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests {
namespace {

using standin::Answer;
using standin::List;
using testing::ElementsAre;
using testing::IsEmpty;
using Error = CertificateSelectorError;

const standin::Text key = u"AutoSelectCertificateForUrls";
constexpr const char* chrome = "com.google.Chrome";

class CurrentUserChromePreferencesTest : public OverStandIn {
 protected:
  static void store(standin::Value value) {
    machine().preferences[chrome].insert_or_assign(key, std::move(value));
  }
  static bool isAnythingStored() { return machine().preferences[chrome].contains(key); }
  static List storedTexts() {
    return std::get<List>(machine().preferences[chrome].at(key).content);
  }
  static std::vector<std::string> read() { return CurrentUserChromePreferences().readRules(); }
};

TEST_F(CurrentUserChromePreferencesTest, ReadsTheCurrentUsersValueOnAnyHost) {
  EXPECT_THAT(read(), IsEmpty());
  EXPECT_THAT(calls("CF"), ElementsAre("CFPreferencesCopyValue(AutoSelectCertificateForUrls, "
                                       "com.google.Chrome, kCFPreferencesCurrentUser, "
                                       "kCFPreferencesAnyHost)"));
}

TEST_F(CurrentUserChromePreferencesTest, ReadsStringsInTheirOrder) {
  store({List{text(u"b"), text(u""), text(u"\u00e1"), text(u"b")}});
  EXPECT_THAT(read(), ElementsAre("b", "", "\xc3\xa1", "b"));
}

TEST_F(CurrentUserChromePreferencesTest, ReadsAnEmptyList) {
  store({List()});
  EXPECT_THAT(read(), IsEmpty());
}

using Invalid = Case<standin::Value>;

class InvalidPreference : public CurrentUserChromePreferencesTest,
                          public testing::WithParamInterface<Invalid> {};

TEST_P(InvalidPreference, IsRefusedAndNeverOverwritten) {
  store(GetParam().value);
  EXPECT_EQ(thrownBy<ChromePreferencesError>([] { (void)read(); }), ChromePreferencesError());
  EXPECT_EQ(selectorErrorOf([] {
              ChromeCertificatePolicyService().apply(
                  {"id", {"Ana", std::nullopt, std::nullopt, std::nullopt}, noFields, {}});
            }),
            Error::policyWriteFailed());
  EXPECT_THAT(calls("CFPreferencesSetValue"), IsEmpty());
  EXPECT_THAT(calls("CFPreferencesSynchronize"), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Of, InvalidPreference,
    testing::Values(Invalid{"ASingleString", text(u"rule")}, Invalid{"ANumber", {1.0}},
                    Invalid{"ABoolean", {true}}, Invalid{"ADate", {farAhead}},
                    Invalid{"Data", {standin::Bytes{1}}},
                    Invalid{"ADictionary", {standin::Dictionary()}},
                    Invalid{"AListWithANumber", {List{text(u"rule"), {1.0}}}},
                    Invalid{"AListInAList", {List{{List()}}}},
                    Invalid{"AStringWithoutAUTF8Form", {List{text({0xd800})}}}),
    caseName);

TEST_F(CurrentUserChromePreferencesTest, WritesTheWholeListWithoutFlushingIt) {
  CurrentUserChromePreferences().writeRules({"b", "", "\xc3\xa1"});
  EXPECT_THAT(read(), ElementsAre("b", "", "\xc3\xa1"));
  EXPECT_FALSE(isAnythingStored());
  EXPECT_EQ(standin::trace().front(),
            "CFPreferencesSetValue(AutoSelectCertificateForUrls, [b, , \xc3\xa1], "
            "com.google.Chrome, kCFPreferencesCurrentUser, kCFPreferencesAnyHost)");
}

TEST_F(CurrentUserChromePreferencesTest, SynchronizesTheWholeDomain) {
  CurrentUserChromePreferences preferences;
  preferences.writeRules({"rule"});
  EXPECT_TRUE(preferences.synchronize());
  ASSERT_EQ(storedTexts().size(), 1U);
  EXPECT_THAT(calls("CFPreferencesSynchronize"),
              ElementsAre("CFPreferencesSynchronize(com.google.Chrome, kCFPreferencesCurrentUser, "
                          "kCFPreferencesAnyHost)"));
}

TEST_F(CurrentUserChromePreferencesTest, ReportsThatSynchronizingFailed) {
  machine().answer("CFPreferencesSynchronize", Answer::status(-1));
  EXPECT_FALSE(CurrentUserChromePreferences().synchronize());
}

class PolicyOverPreferences : public CurrentUserChromePreferencesTest {
 protected:
  static std::optional<Error> apply(const std::optional<std::string>& commonName = "Ana") {
    return selectorErrorOf([&commonName] {
      ChromeCertificatePolicyService().apply(
          {"id", {commonName, std::nullopt, std::nullopt, std::nullopt}, noFields, {}});
    });
  }

  static constexpr const char* rule = R"({"filter":{"SUBJECT":{"CN":"Ana"}},"pattern":"*"})";
};

TEST_F(PolicyOverPreferences, StoresTheRuleAloneIfThereWasNone) {
  EXPECT_EQ(apply(), std::nullopt);
  EXPECT_TRUE(isAnythingStored());
  EXPECT_THAT(read(), ElementsAre(rule));
}

TEST_F(PolicyOverPreferences, KeepsOtherRulesAndTheirOrder) {
  store({List{text(u"{\"pattern\":\"a\"}"), text(u"{\"pattern\":\"*\"}"), text(u"no rule"),
              text(u"{\"pattern\":\"*\"}")}});
  EXPECT_EQ(apply(), std::nullopt);
  EXPECT_THAT(read(), ElementsAre(R"({"pattern":"a"})", rule, "no rule"));
  EXPECT_EQ(apply(), std::nullopt);
  EXPECT_THAT(read(), ElementsAre(R"({"pattern":"a"})", rule, "no rule"));
}

TEST_F(PolicyOverPreferences, CallsTheFrameworkInOrder) {
  EXPECT_EQ(apply(), std::nullopt);
  std::vector<std::string> functions;
  for (const std::string& call : calls("CFPreferences")) {
    functions.push_back(call.substr(0, call.find('(')));
  }
  EXPECT_THAT(functions, ElementsAre("CFPreferencesCopyValue", "CFPreferencesSetValue",
                                     "CFPreferencesSynchronize", "CFPreferencesCopyValue"));
}

TEST_F(PolicyOverPreferences, TouchesNothingForASubjectThatChromeCannotMatch) {
  EXPECT_EQ(apply(std::nullopt), Error::certificateHasNoSubject());
  EXPECT_THAT(calls("CFPreferences"), IsEmpty());
}

TEST_F(PolicyOverPreferences, FailsWhenSynchronizingFails) {
  machine().answer("CFPreferencesSynchronize", Answer::status(-1));
  EXPECT_EQ(apply(), Error::policyWriteFailed());
  EXPECT_THAT(calls("CFPreferencesSetValue"), testing::SizeIs(1));
}

TEST_F(PolicyOverPreferences, FailsWhenTheValueCannotBeReadBack) {
  machine().answer("CFPreferencesCopyValue", Answer::object({1.0}).onCall(2));
  EXPECT_EQ(apply(), Error::policyVerificationFailed());
}

TEST_F(PolicyOverPreferences, FailsWhenAnotherValueIsReadBack) {
  machine().answer("CFPreferencesCopyValue", Answer::nothing().onCall(2));
  EXPECT_EQ(apply(), Error::policyVerificationFailed());
}

TEST_F(PolicyOverPreferences, FailsWhenAnotherOrderIsReadBack) {
  store({List{text(u"no rule")}});
  machine().answer("CFPreferencesCopyValue",
                   Answer::object({List{text(u"{\"filter\":{\"SUBJECT\":{\"CN\":\"Ana\"}},"
                                             u"\"pattern\":\"*\"}"),
                                        text(u"no rule")}})
                       .onCall(2));
  EXPECT_EQ(apply(), Error::policyVerificationFailed());
}

}  // namespace
}  // namespace lumaret::tests
