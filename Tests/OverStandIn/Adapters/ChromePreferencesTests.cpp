// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LumaretMacHelper/PlatformServices.hpp"
#include "Tests/OverStandIn/SampleMac.hpp"

namespace lumaret::tests {
namespace {

class ChromePreferencesTest : public OverStandIn {};

TEST_F(ChromePreferencesTest, AreStoredOnceSynchronized) {
  CurrentUserChromePreferences preferences;
  preferences.writeRules({"rule"});
  EXPECT_THAT(preferences.readRules(), testing::ElementsAre("rule"));
  EXPECT_EQ(machine()["preferences"], json::object());
  EXPECT_TRUE(preferences.synchronize());
  EXPECT_EQ(machine()["preferences"],
            json::parse(R"({"com.google.Chrome": {"AutoSelectCertificateForUrls": ["rule"]}})"));
}

// The conformance suite has the types that JSON has, too.
TEST_F(ChromePreferencesTest, RejectValuesThatAreNotTexts) {
  for (const json& value :
       {json({{"date", 0}}), json::binary({1}), json::array({"rule", "\xed\xa0\x80"})}) {
    machine()["preferences"]["com.google.Chrome"]["AutoSelectCertificateForUrls"] = value;
    EXPECT_THROW((void)CurrentUserChromePreferences().readRules(), ChromePreferencesError);
  }
}

}  // namespace
}  // namespace lumaret::tests
