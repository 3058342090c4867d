// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"

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

  PreferenceStore store_;
};

TYPED_TEST_SUITE_P(PreferencesConformance);

TYPED_TEST_P(PreferencesConformance, ReadsAListInItsOrder) {
  EXPECT_THAT(this->read(), testing::IsEmpty());
  this->store_.store(nlohmann::json::array());
  EXPECT_THAT(this->read(), testing::IsEmpty());
  this->store_.store({"b", "", "\u00e1 \U0001f600", "b"});
  EXPECT_THAT(this->read(), testing::ElementsAre("b", "", "\u00e1 \U0001f600", "b"));
}

TYPED_TEST_P(PreferencesConformance, RejectsWhatIsNotAListOfStrings) {
  using nlohmann::json;
  for (const json& value : {json("a single text"), json(7), json(true), json::object(),
                            json::array({"text", 7}), json::array({json::array({"text"})})}) {
    this->store_.store(value);
    EXPECT_THROW((void)this->read(), ChromePreferencesError) << value;
    EXPECT_EQ(this->store_.stored(), value);
  }
}

TYPED_TEST_P(PreferencesConformance, StoresWhatIsWrittenAndSynchronized) {
  using Rules = std::vector<std::string>;
  for (const Rules& rules : {Rules{"b", "", "\u00e1", std::string(100'000, 'x')}, Rules{}}) {
    {
      CurrentUserChromePreferences preferences;
      preferences.writeRules(rules);
      EXPECT_TRUE(preferences.synchronize());
      EXPECT_EQ(preferences.readRules(), rules);
    }
    EXPECT_EQ(this->read(), rules);
    // An empty list and none are the same to Chrome.
    EXPECT_EQ(this->store_.stored().value_or(nlohmann::json::array()), nlohmann::json(rules));
  }
}

TYPED_TEST_P(PreferencesConformance, KeepsTheListIfItCannotBeReplaced) {
  this->store_.store({"rule"});
  this->store_.refuseWrites();
  EXPECT_EQ(selectorErrorOf([] {
              ChromeCertificatePolicyService().apply(
                  {"id", {"Ana", std::nullopt, std::nullopt, std::nullopt}, {}, {}});
            }),
            CertificateSelectorError::policyWriteFailed());
  EXPECT_EQ(this->store_.stored(), nlohmann::json::array({"rule"}));
}

REGISTER_TYPED_TEST_SUITE_P(PreferencesConformance, ReadsAListInItsOrder,
                            RejectsWhatIsNotAListOfStrings, StoresWhatIsWrittenAndSynchronized,
                            KeepsTheListIfItCannotBeReplaced);

}  // namespace lumaret::tests::conformance
