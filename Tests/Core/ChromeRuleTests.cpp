// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "LumaretMacHelper/ChromeRule/ChromeRule.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "Tests/Core/FakeSystem.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"
#include "Tests/Support/Cpp/Messages.hpp"

namespace lumaret {
namespace tests {
namespace {

/// What the platform of these tests answers.
struct FakePlatform {
  std::vector<RuleSource> sources;
  std::function<void()> withdraw = [] {};
  std::set<std::string> notOffered;  // certificates
  std::function<bool()> authorize = [] { return false; };
  std::string missingDatabase;
  std::vector<Finding> findings;
  std::string fault;  // of the sources
};
FakePlatform& platform() {
  static FakePlatform platform;
  return platform;
}

}  // namespace
}  // namespace tests

std::vector<RuleSource> ruleSources() {
  return tests::platform().fault.empty() ? tests::platform().sources
                                         : throw std::runtime_error(tests::platform().fault);
}
void withdrawRule() { tests::platform().withdraw(); }
std::function<bool(const Bytes&)> offerTest() {
  return [](const Bytes& certificate) {
    return !tests::platform().notOffered.contains({certificate.begin(), certificate.end()});
  };
}
bool rehearseAuthorization(const ClientIdentity& /*identity*/) {
  return tests::platform().authorize();
}
std::vector<Finding> platformFindings() { return tests::platform().findings; }
PlatformTexts platformTexts() {
  return {"Browser",         "/folder",    tests::platform().missingDatabase,
          "Mend them.",      "Import it.", "Free it.",
          "Mend the rules.", "Rename it."};
}
std::vector<KeychainIdentity> SystemKeychainIdentityQuery::copyIdentities() const {
  static const tests::FakeServices query(tests::fakeSystem());
  return query.copyIdentities();
}

namespace tests {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr Date never = std::chrono::sys_days(9999y / 12 / 31);

const std::string site = R"({"filter":{"SUBJECT":{"CN":"Ana"}},"pattern":"https://a.example"})";
const std::string otherSite = R"({"filter":{},"pattern":"https://b.example"})";

std::string rule(const std::string& filter) {
  return R"({"filter":)" + filter + R"(,"pattern":"*"})";
}
const std::string anasRule = rule(R"({"SUBJECT":{"CN":"Ana"}})");

RuleSource theirs(const Texts& rules) { return {"theirs", -1, rules}; }
RuleSource own(const Texts& rules) { return {"own", 0, rules}; }
RuleSource later(const Texts& rules) { return {"later", 1, rules}; }

class ChromeRule : public testing::Test {
 protected:
  ChromeRule() {
    fakeSystem() = {};
    platform() = {};
    add("a", "Ana");
  }

  static void add(const std::string& certificate, const std::string& commonName,
                  Date expiresAt = never) {
    fakeSystem().identities.push_back({certificate, valuesNaming(commonName, expiresAt)});
  }

  /// Runs the command, which ends with this status. Returns what it prints.
  static std::string run(const std::string& command, int expected = 0) {
    std::vector<std::string> arguments = words("tool " + command);
    std::vector<const char*> pointers;
    for (const std::string& argument : arguments) {
      pointers.push_back(argument.c_str());
    }
    fakeSystem().calls.clear();
    EXPECT_EQ(runChromeRule(static_cast<int>(pointers.size()), pointers.data()), expected);
    return fakeSystem().calls.back().substr(fakeSystem().calls.back().find(' ') + 1);
  }
  static json result(const std::string& command, int expected = 0) {
    return json::parse(run(command + " --json", expected));
  }

  /// The fingerprints of what this rule selects.
  static json selectedBy(const Texts& rules) {
    platform().sources = {own(rules)};
    return result("show").at("identities");
  }

  /// The only condition that does not hold.
  static std::string failureOf(const std::string& command) {
    Texts failures;
    const json findings = result(command, 1).at("findings");
    for (const json& finding : findings) {
      EXPECT_EQ(finding.at("holds"), finding.at("cure").is_null());
      if (!finding.at("holds")) {
        failures.push_back(finding.at("check").get<std::string>() + ": " +
                           finding.at("cure").get<std::string>());
      }
    }
    return failures.size() == 1 ? failures.front() : listed(failures);
  }
};

using ChromeRuleShow = ChromeRule;
using ChromeRuleClear = ChromeRule;
using ChromeRuleCheck = ChromeRule;

TEST_F(ChromeRule, RejectsOtherCommands) {
  for (const char* command : {"", "list", "Show", "show all", "clear --all", "check a b",
                              "check -h", "check --url a", "--json show", "--json"}) {
    EXPECT_EQ(run(command, 2),
              "Usage: lumaret-chrome-rule show | clear | check [FINGERPRINT] [--json]\n");
    EXPECT_THAT(fakeSystem().calls, ElementsAre("prepareStandardStreams", StartsWith("error ")));
  }
  EXPECT_EQ(runChromeRule(0, nullptr), 2);
  EXPECT_EQ(runChromeRule(3, std::array{"tool", "check", ""}.data()), 2);
  EXPECT_EQ(run("check --json " + idOf("a")), run("check " + idOf("a") + " --json"));
}

TEST_F(ChromeRuleShow, TellsThatTheBrowserAsks) {
  for (const auto& sources :
       {std::vector<RuleSource>(), {own({site})}, {own({R"({"pattern":"*"})"})}}) {
    platform().sources = sources;
    EXPECT_EQ(run("show"), "Browser asks which certificate to present.\n");
    EXPECT_EQ(result("show"),
              json::parse(R"({"browser":"Browser","rules":[],"identities":[],"obstacles":[]})"));
  }
}

TEST_F(ChromeRuleShow, TellsTheRuleAndWhatItSelects) {
  platform().sources = {
      theirs({}),
      own({site, rule(R"({"SUBJECT":{"CN":"\u00c1na \"A\"","O":"Org"},"ISSUER":{}})")})};
  EXPECT_EQ(run("show"),
            "Browser follows this rule for every site:\n"
            "  subject: CN=\"\u00c1na \\\"A\\\"\", O=\"Org\"\n"
            "  issuer: any\n"
            "  stored in: own\n"
            "It asks nevertheless: none of your certificates matches.\n" +
                run("show").substr(run("show").find("own overrides")));
  platform().sources = {own({anasRule})};
  EXPECT_THAT(run("show"),
              HasSubstr("It presents, without asking:\n  " + idOf("a") + " \"Ana\"\n"));
  add("b", "Ana");
  EXPECT_THAT(run("show"), HasSubstr("Several of your certificates match."));
  EXPECT_EQ(result("show"),
            (json{{"browser", "Browser"},
                  {"rules",
                   {{{"subject", {{"CN", "Ana"}}}, {"issuer", json::object()}, {"source", "own"}}}},
                  {"identities", {idOf("a"), idOf("b")}},
                  {"obstacles", json::array()}}));
}

TEST_F(ChromeRuleShow, SelectsAsChromeDoes) {
  const auto subject = name(
      {attribute("2.5.4.10", "One"), attribute("2.5.4.3", "Ana"), attribute("2.5.4.3", "Anna"),
       attribute("2.5.4.7", "Lugo"), attribute("2.5.4.7", "Vigo"), attribute("2.5.4.10", "Two"),
       section("", {attribute("2.5.4.11", "R"), attribute("2.5.4.11", "D")})});
  const auto issuer = name({attribute("2.5.4.3", "CA")});
  fakeSystem().identities = {{"a", {{subject, issuer, notAfter({never})}}},
                             {"unreadable", std::nullopt},
                             {"missing", std::nullopt, true, false}};
  const json ana = {idOf("a")};
  for (const char* filter :
       {"{}", R"({"SUBJECT":{}})", R"({"SUBJECT":"Ben"})", R"({"SUBJECT":{"CN":7,"X":"y","L":""}})",
        R"({"SUBJECT":{"CN":"Ana","L":"Lugo"}})", R"({"SUBJECT":{"O":"Two","OU":"D"}})",
        R"({"SUBJECT":{"O":"One","OU":"R"},"ISSUER":{"CN":"CA"}})"}) {
    EXPECT_EQ(selectedBy({rule(filter)}), ana) << filter;
  }
  for (const char* filter :
       {R"("any")", R"({"SUBJECT":{"CN":"Anna"}})", R"({"SUBJECT":{"CN":"ana"}})",
        R"({"SUBJECT":{"L":"Vigo"}})", R"({"SUBJECT":{"O":"Three"}})", R"({"SUBJECT":{"OU":"RD"}})",
        R"({"SUBJECT":{"CN":"Ana"},"ISSUER":{"CN":"Ana"}})", R"({"ISSUER":{"O":"CA"}})"}) {
    EXPECT_EQ(selectedBy({rule(filter)}), json::array()) << filter;
  }
  EXPECT_EQ(selectedBy({rule(R"({"SUBJECT":{"CN":"Ben"}})"), anasRule}), ana);
}

TEST_F(ChromeRuleShow, LeavesOutWhatChromeDoes) {
  add("expired", "Ana", Date());
  add("other", "Ana");
  platform().notOffered = {"other"};
  EXPECT_EQ(selectedBy({anasRule, site}), json{idOf("a")});
}

TEST_F(ChromeRuleShow, TellsWhatIsNotInForce) {
  const auto obstacles = [](const std::vector<RuleSource>& sources) {
    platform().sources = sources;
    return result("show").at("obstacles").get<Texts>();
  };
  EXPECT_THAT(obstacles({own({anasRule}), later({})}), ElementsAre("later overrides own."));
  EXPECT_THAT(obstacles({theirs({anasRule, site}), own({anasRule})}),
              ElementsAre(StartsWith("own overrides theirs, and its copy")));
  for (const auto& sources : std::vector<std::vector<RuleSource>>{
           {own({site}), later({})},
           {theirs({otherSite}), own({site}), later({})},
           {later({anasRule})},
           {own({site, anasRule})},
           {theirs({anasRule, site, otherSite}), own({otherSite, site})}}) {
    EXPECT_THAT(obstacles(sources), IsEmpty());
  }
  platform().sources = {own({anasRule}), later({})};
  EXPECT_THAT(run("show"), HasSubstr("\nlater overrides own.\n"));
  platform().fault = "file: Permission denied";
  EXPECT_EQ(run("show", 1), "file: Permission denied\n");
}

TEST_F(ChromeRuleClear, HasNothingToClear) {
  platform().withdraw = [] { FAIL(); };
  fakeSystem().isRunning = true;
  EXPECT_EQ(run("clear"),
            "There is no rule to clear.\nBrowser asks which certificate to present.\n");
  platform().sources = {theirs({anasRule}), own({site}), later({anasRule})};
  EXPECT_THAT(run("clear"), StartsWith("There is no rule to clear.\nBrowser follows this rule"));
  EXPECT_THAT(fakeSystem().calls, ElementsAre("prepareStandardStreams", StartsWith("output")));
}

TEST_F(ChromeRuleClear, WithdrawsAndRefreshes) {
  fakeSystem().isRunning = true;
  for (const int installed : {1, 0}) {
    fakeSystem().isInstalled = installed == 1;
    platform().sources = {theirs({site}), own({site, otherSite, anasRule})};
    platform().withdraw = [] { platform().sources = {theirs({site}), own({site, otherSite})}; };
    EXPECT_EQ(run("clear"), "Browser asks again.\n");
    EXPECT_EQ(std::ranges::count(fakeSystem().calls,
                                 "run and await /opt/chrome [--refresh-platform-policy]"),
              installed);
  }
}

TEST_F(ChromeRuleClear, TellsTheRuleThatHoldsAgain) {
  platform().sources = {theirs({anasRule}), own({anasRule})};
  platform().withdraw = [] { platform().sources = {theirs({anasRule})}; };
  EXPECT_THAT(run("clear"), StartsWith("The rule is cleared.\nBrowser follows this rule"));
  platform().sources.push_back(own({anasRule}));
  EXPECT_EQ(
      result("clear"),
      (json{{"ok", true},
            {"rules",
             {{{"subject", {{"CN", "Ana"}}}, {"issuer", json::object()}, {"source", "theirs"}}}}}));
}

TEST_F(ChromeRuleClear, FailsLikeActivate) {
  const auto failure = [](const std::function<void()>& withdraw) {
    platform() = {};
    platform().sources = {own({site, anasRule})};
    platform().withdraw = withdraw;
    const std::string message = run("clear", 1);
    EXPECT_THAT(fakeSystem().calls, ElementsAre("prepareStandardStreams", StartsWith("error ")));
    return message.substr(0, message.size() - 1);
  };
  EXPECT_EQ(failure([] { throw std::runtime_error(""); }), messages::policyWriteFailed);
  EXPECT_EQ(failure([] {}), messages::policyVerificationFailed);
  EXPECT_EQ(failure([] { platform().sources = {}; }), messages::policyVerificationFailed);
  EXPECT_EQ(failure([] { platform().fault = "file"; }), messages::policyVerificationFailed);
}

TEST_F(ChromeRuleCheck, ListsWhatHolds) {
  EXPECT_EQ(run("check"), run("check " + idOf("a")));
  EXPECT_EQ(run("check"),
            "ok  Browser at /opt/chrome\n"
            "ok  certificate database /folder\n"
            "ok  certificate " +
                idOf("a") +
                " \"Ana\"\n"
                "ok  names that a rule can match\n"
                "ok  a key that Chrome may use\n"
                "ok  a certificate that Browser offers\n"
                "ok  no other certificate with these names\n"
                "ok  readable rules of Browser\n"
                "ok  nothing that overrides the rule of activate\n");
  platform().authorize = [] { return true; };
  EXPECT_THAT(run("check"), HasSubstr("ok  a key that Chrome may use once you confirm it\n"));
  platform().findings = {{"display", "a display", "Open one."}, {"last", "", ""}};
  EXPECT_THAT(run("check", 1), HasSubstr("NO  a display\n    Open one.\n"));
  EXPECT_EQ(failureOf("check"), "display: Open one.");
}

TEST_F(ChromeRuleCheck, MissesTheBrowserOrCertificates) {
  fakeSystem().isInstalled = false;
  EXPECT_THAT(failureOf("check"), StartsWith("browser: Install it"));
  fakeSystem().isInstalled = true;
  fakeSystem().fail("copyIdentities", CertificateSelectorError::keychainFailure(-1));
  EXPECT_EQ(failureOf("check"),
            "database: " + messages::told(messages::keychainFailure, "-1") + " Mend them.");
  fakeSystem() = {};
  EXPECT_EQ(failureOf("check"), "certificate: Import it.");
  platform().missingDatabase = "Make it.";
  EXPECT_EQ(failureOf("check"), "[database: Make it., certificate: Import it.]");
}

TEST_F(ChromeRuleCheck, TellsWhyACertificateIsNotUsable) {
  add("expired", "Ana", Date());
  fakeSystem().identities.push_back({"keyless", valuesNaming("Ana", never), false});
  EXPECT_EQ(failureOf("check none"), "certificate: Import it.");
  EXPECT_EQ(failureOf("check " + idOf("keyless")), "certificate: Import it.");
  EXPECT_THAT(failureOf("check " + idOf("expired")), StartsWith("certificate: It has expired"));
  fakeSystem().identities.erase(fakeSystem().identities.begin());
  EXPECT_THAT(failureOf("check"), StartsWith("certificate: It has expired"));
}

TEST_F(ChromeRuleCheck, TellsWhatChromeWouldNotPresent) {
  platform().notOffered = {"a"};
  EXPECT_THAT(failureOf("check"), StartsWith("usage: It is not valid yet"));
  platform() = {};
  platform().authorize = []() -> bool {
    throw CertificateSelectorError::selectedIdentityAmbiguous();
  };
  EXPECT_EQ(failureOf("check"),
            std::string("key: ") + messages::selectedIdentityAmbiguous + " Free it.");
  platform() = {};
  fakeSystem().identities = {{"a", {{nullptr, nullptr, notAfter({never})}}}};
  EXPECT_THAT(failureOf("check"),
              StartsWith(std::string("name: ") + messages::certificateHasNoSubject));
}

TEST_F(ChromeRuleCheck, TellsAnotherCertificateThatMatches) {
  add("b", "Ana");
  EXPECT_EQ(result("check").at("findings")[2].at("text"),
            "2 valid certificates (to check one, name its fingerprint)");
  EXPECT_EQ(result("check").at("findings").size(), 5U);
  EXPECT_THAT(failureOf("check " + idOf("a")),
              StartsWith("match: It also selects " + idOf("b") + " \"Ana\"."));
}

TEST_F(ChromeRuleCheck, ReadsTheRules) {
  platform().sources = {theirs({}), own({})};
  EXPECT_EQ(result("check").at("ok"), true);
  platform().sources = {own({}), later({})};
  EXPECT_EQ(failureOf("check"), "override: later does. Rename it.");
  platform().fault = "file: Permission denied";
  EXPECT_EQ(failureOf("check"), "rules: file: Permission denied Mend the rules.");
}

}  // namespace
}  // namespace tests
}  // namespace lumaret
