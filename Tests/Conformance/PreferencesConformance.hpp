// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests::conformance {

/// How the platform stores Chrome's list of rules.
///
/// A `PreferenceStore` stands for the preference that Chrome reads. At first it has no value:
///     void store(const nlohmann::json&)
///         Sets the whole value, which may have any type.
///     std::optional<nlohmann::json> stored() const
///         The value that a Chrome started now would read, or std::nullopt if there is none.
///     void refuseWrites()
///         From now on a list cannot be made permanent.
template <typename PreferenceStore>
class PreferencesConformance : public testing::Test {
 protected:
  static std::vector<std::string> read() { return CurrentUserChromePreferences().readRules(); }

  static std::optional<CertificateSelectorError> apply() {
    return selectorErrorOf([] {
      ChromeCertificatePolicyService().apply(
          {"id", {"Ana", std::nullopt, std::nullopt, std::nullopt}, {}, {}});
    });
  }

  /// Reading fails, and applying a rule fails before it changes anything.
  void expectRefusal(const nlohmann::json& value) {
    store_.store(value);
    EXPECT_TRUE(thrownBy<ChromePreferencesError>([] { (void)read(); })) << value;
    EXPECT_EQ(apply(), CertificateSelectorError::policyWriteFailed()) << value;
    EXPECT_EQ(store_.stored(), value);
  }

  static constexpr const char* rule = R"({"filter":{"SUBJECT":{"CN":"Ana"}},"pattern":"*"})";

  PreferenceStore store_;
};

TYPED_TEST_SUITE_P(PreferencesConformance);

TYPED_TEST_P(PreferencesConformance, WithoutAStoredValueTheListIsEmpty) {
  EXPECT_THAT(this->read(), testing::IsEmpty());
}

TYPED_TEST_P(PreferencesConformance, AListIsReadInItsOrder) {
  this->store_.store({"b", "", "\xc3\xa1 \xf0\x9f\x98\x80", "b"});
  EXPECT_THAT(this->read(), testing::ElementsAre("b", "", "\xc3\xa1 \xf0\x9f\x98\x80", "b"));
}

TYPED_TEST_P(PreferencesConformance, AnEmptyListIsRead) {
  this->store_.store(nlohmann::json::array());
  EXPECT_THAT(this->read(), testing::IsEmpty());
}

TYPED_TEST_P(PreferencesConformance, AValueThatIsNotAListOfStringsIsRefusedAndKept) {
  this->expectRefusal("a single text");
  this->expectRefusal(7);
  this->expectRefusal(true);
  this->expectRefusal(nlohmann::json::object());
  this->expectRefusal({"text", 7});
  this->expectRefusal(nlohmann::json::array({nlohmann::json::array({"text"})}));
}

TYPED_TEST_P(PreferencesConformance, WhatIsWrittenAndSynchronizedIsStored) {
  const std::vector<std::string> rules = {"b", "", "\xc3\xa1", std::string(100'000, 'x')};
  {
    CurrentUserChromePreferences preferences;
    preferences.writeRules(rules);
    EXPECT_TRUE(preferences.synchronize());
    EXPECT_EQ(preferences.readRules(), rules);
  }
  EXPECT_EQ(this->read(), rules);
  EXPECT_EQ(this->store_.stored(), nlohmann::json(rules));
}

TYPED_TEST_P(PreferencesConformance, AnEmptyListCanBeWritten) {
  this->store_.store({"rule"});
  CurrentUserChromePreferences preferences;
  preferences.writeRules({});
  EXPECT_TRUE(preferences.synchronize());
  EXPECT_THAT(this->read(), testing::IsEmpty());
}

TYPED_TEST_P(PreferencesConformance, ARuleIsStoredIfThereWasNone) {
  EXPECT_EQ(this->apply(), std::nullopt);
  EXPECT_EQ(this->store_.stored(), nlohmann::json::array({this->rule}));
}

TYPED_TEST_P(PreferencesConformance, OtherRulesKeepTheirTextAndTheirOrder) {
  this->store_.store({R"({"pattern":"a"})", R"({"pattern":"*"})", "no rule", R"({"pattern":"*"})"});
  const nlohmann::json expected = {R"({"pattern":"a"})", this->rule, "no rule"};
  EXPECT_EQ(this->apply(), std::nullopt);
  EXPECT_EQ(this->store_.stored(), expected);
  EXPECT_EQ(this->apply(), std::nullopt);
  EXPECT_EQ(this->store_.stored(), expected);
}

TYPED_TEST_P(PreferencesConformance, AListThatCannotBeMadePermanentIsAFailure) {
  this->store_.store({"no rule"});
  this->store_.refuseWrites();
  EXPECT_EQ(this->apply(), CertificateSelectorError::policyWriteFailed());
  EXPECT_EQ(this->store_.stored(), nlohmann::json::array({"no rule"}));
}

REGISTER_TYPED_TEST_SUITE_P(PreferencesConformance, WithoutAStoredValueTheListIsEmpty,
                            AListIsReadInItsOrder, AnEmptyListIsRead,
                            AValueThatIsNotAListOfStringsIsRefusedAndKept,
                            WhatIsWrittenAndSynchronizedIsStored, AnEmptyListCanBeWritten,
                            ARuleIsStoredIfThereWasNone, OtherRulesKeepTheirTextAndTheirOrder,
                            AListThatCannotBeMadePermanentIsAFailure);

}  // namespace lumaret::tests::conformance
