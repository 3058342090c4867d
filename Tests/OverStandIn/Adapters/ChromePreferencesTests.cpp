// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"
#include "Tests/Support/Cpp/Principals.hpp"

namespace lumaret::tests {
namespace {

using standin::List;

class ChromePreferencesTest : public OverStandIn {};

TEST_F(ChromePreferencesTest, AreTheCurrentUsersOnAnyHost) {
  ChromeCertificatePolicyService().apply(
      {"id", {"Ana", std::nullopt, std::nullopt, std::nullopt}, noFields, {}});
  const std::string domain = "com.google.Chrome, kCFPreferencesCurrentUser, kCFPreferencesAnyHost)";
  const std::string copied = "CFPreferencesCopyValue(AutoSelectCertificateForUrls, " + domain;
  EXPECT_THAT(standin::trace(),
              testing::ElementsAre(copied,
                                   "CFPreferencesSetValue(AutoSelectCertificateForUrls, "
                                   R"([{"filter":{"SUBJECT":{"CN":"Ana"}},"pattern":"*"}], )" +
                                       domain,
                                   "CFPreferencesSynchronize(" + domain, copied));
}

TEST_F(ChromePreferencesTest, AreStoredOnceSynchronized) {
  CurrentUserChromePreferences preferences;
  preferences.writeRules({"rule"});
  EXPECT_THAT(preferences.readRules(), testing::ElementsAre("rule"));
  EXPECT_TRUE(machine().preferences.empty());
  EXPECT_TRUE(preferences.synchronize());
  EXPECT_FALSE(machine().preferences.empty());
}

TEST_F(ChromePreferencesTest, ReportFailedSynchronization) {
  machine().answer("CFPreferencesSynchronize", standin::Answer::status(-1));
  EXPECT_FALSE(CurrentUserChromePreferences().synchronize());
}

// The conformance suite has the types that JSON has, too.
TEST_F(ChromePreferencesTest, RejectValuesThatAreNotTexts) {
  for (const standin::Value& value : {standin::Value{farAhead}, standin::Value{standin::Bytes{1}},
                                      standin::Value{List{text(u"rule"), text({0xd800})}}}) {
    machine().preferences["com.google.Chrome"].insert_or_assign(u"AutoSelectCertificateForUrls",
                                                                value);
    EXPECT_THROW((void)CurrentUserChromePreferences().readRules(), ChromePreferencesError);
  }
}

}  // namespace
}  // namespace lumaret::tests
