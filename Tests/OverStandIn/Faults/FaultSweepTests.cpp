// SPDX-License-Identifier: Apache-2.0
// Whole runs of the tool, each with one framework call that fails. Whatever fails, the run ends
// with a documented message, what it has not reached is unchanged, and what it has passed is
// complete.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/LumaretMacHelper.hpp"
#include "Tests/OverStandIn/SampleMac.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"
#include "Tests/Support/Cpp/Messages.hpp"

namespace lumaret::tests {
namespace {

using standin::object;
using standin::status;

// Faults

using Answers = std::vector<json>;

Answers operator+(Answers left, const Answers& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

const json failureWithObject = {{"status", -25293}, {"leavesObject", true}};
const Answers statuses = {status(-128),   status(-25300), status(-25304),
                          status(-25306), status(1),      failureWithObject};
const Answers nothing = {standin::nothing()};
const Answers emptyArray = {object(json::array())};
const Answers foreignElements = {standin::foreignElement(0),
                                 standin::foreignElement(std::numeric_limits<int>::max())};
const Answers noBytes = {object(json::binary({}))};
const Answers otherBytes = {object(json::binary({1}))};
/// For functions that may return any object.
const Answers otherTypes = Answers{object("text"), object(7), object(true), object({{"date", 0}}),
                                   object(json::object())} +
                           otherBytes;

/// Answers that are not true. The run is that of another Mac.
Answers lying(Answers answers) {
  std::ranges::for_each(answers, [](json& answer) { answer["lies"] = true; });
  return answers;
}

const json expired = certificateValues(json::array(), 0);
const json otherValues = certificateValues(json::array({property("2.5.4.3", "x")}));

/// How each function can fail. A result that the framework declares with a specific type, such as
/// SecKeyRef, is never of another type.
const std::map<std::string, Answers> faults = {
    {"SecItemCopyMatching", statuses + nothing + emptyArray + foreignElements + otherTypes +
                                Answers{standin::firstElement()}},
    {"SecIdentityCopyPrivateKey", statuses + nothing},
    {"SecIdentityCopyCertificate", statuses + nothing},
    {"SecCertificateCopyValues",
     nothing + Answers{object(json::object()), object(expired)} + lying({object(otherValues)})},
    {"SecCertificateCopyData", nothing + noBytes + lying(otherBytes)},
    {"SecKeychainItemCopyKeychain", statuses + nothing},
    {"SecKeychainItemCopyAccess", statuses + nothing},
    {"SecAccessCopyACLList", statuses + nothing + emptyArray + foreignElements},
    {"SecACLCopyAuthorizations", nothing + foreignElements + lying(emptyArray)},
    {"SecACLCopyContents", statuses + foreignElements + lying(nothing + emptyArray)},
    {"SecTrustedApplicationCreateFromPath", statuses + nothing},
    {"SecTrustedApplicationCopyData", statuses + nothing + lying(noBytes + otherBytes)},
    {"SecACLSetContents", statuses},
    {"SecKeychainItemSetAccess", statuses},
    {"CC_SHA256", {}},
    {"CFLocaleCopyCurrent", nothing},
    {"CFPreferencesCopyValue",
     otherTypes + Answers{object({"no rule", 7}), object(json::array({"\xed\xa0\x80"}))} +
         lying(nothing + emptyArray + Answers{object(json::array({"another rule"}))})},
    {"CFPreferencesSetValue", {status(-1)}},
    {"CFPreferencesSynchronize", {status(-1)}},
    {"NSFileManager", {status(-1)}},
    {"NSRunningApplication", {}},
    {"NSTask.waitUntilExit", nothing + Answers{status(1), status(255)}},
    {"NSTask", nothing + Answers{status(1)}}};

// Macs

/// A run of the tool on a Mac.
struct Scenario {
  std::vector<std::string> arguments;
  json identities;
  json rules = json::array();
  json runningApplications = {"com.google.Chrome"};
};

/// A scenario and the name under which its test is listed.
using NamedScenario = std::pair<std::string, Scenario>;

std::vector<std::string> activate(const std::string& address = "") {
  return {"activate", "--fingerprint", idOf("ana"), "--url", address};
}

json withValues(json identity, json values) {
  identity["values"] = std::move(values);
  return identity;
}

const json mail = signingEntry({"/Mail"});
const json any = entry("kSecACLAuthorizationAny", {"/Zoom"}, "Cl\u00e9", 0x50);
const json decrypting = entry("kSecACLAuthorizationDecrypt", {"/Mail"});
const json keyless = {{"certificate", "keyless"}};
const json old = withValues(identity("old"), expired);
const json nameless = withValues(identity("nameless"), certificateValues(json::array(), 9e9));

const std::string anasRule =
    R"({"filter":{"ISSUER":{"CN":"Example CA"},"SUBJECT":{"CN":"ana"}},"pattern":"*"})";
const std::string siteRule = R"({"pattern": "https://a.example"})";

const std::vector<NamedScenario> scenarios = {
    {"ListsSeveralIdentities",
     {{"list"}, {identity("zoe"), identity("ana"), old, identity("ana"), keyless, nameless}}},
    {"TwoSigningEntriesWithoutChrome",
     {.arguments = activate(),
      .identities = json::array({identity("ana", {mail, decrypting, any})}),
      .runningApplications = json::array()}},
    {"ChromeListedInTheSecondEntry",
     {activate("https://a.example/"),
      json::array({identity("ana", {mail, signingEntry({"/Zoom", chromeApplication})})}),
      {siteRule, "no rule"}}},
    {"AnyApplicationInTheSecondEntry",
     {activate(), json::array({identity("ana", {mail, openEntry, mail})})}},
    {"SeveralIdentities",
     {activate(),
      {identity("zoe"), old, identity("ana"), keyless},
      {siteRule, R"({"pattern":"*"})", "no rule", anasRule}}}};

/// What is stored, and what has been started.
json state() {
  return {{"identities", machine()["identities"]},
          {"rules", machine()["preferences"]},
          {"unsynchronized", machine()["unsynchronized"]},
          {"started", standin::calls("NSTask")}};
}

/// Replaces the Mac with that of the run. Returns its state.
json begin(const Scenario& scenario) {
  standin::startOver();
  machine()["identities"] = scenario.identities;
  machine()["applications"] = {{chromeApplication, chromeApplication}};
  machine()["preferences"]["com.google.Chrome"]["AutoSelectCertificateForUrls"] = scenario.rules;
  machine()["runningApplications"] = scenario.runningApplications;
  return state();
}

/// Returns the state afterwards, the message of the failure, and the output.
json finish(const Scenario& scenario) {
  std::string message;
  testing::internal::CaptureStdout();
  try {
    LumaretMacHelper::run(scenario.arguments);
  } catch (const std::exception& error) {
    message = error.what();
  }
  json after = state();
  after["message"] = message;
  after["output"] = json::parse(testing::internal::GetCapturedStdout(), nullptr, false);
  return after;
}

/// The steps of a run, and those messages with which it may end at one.
enum class Step : std::uint8_t { key, rule, verification, start, end };

const std::vector<std::pair<std::string, Step>> documented = {
    {messages::keychainFailure, Step::key},
    {messages::keychainAuthorizationFailed, Step::key},
    {messages::keychainAuthorizationCancelled, Step::key},
    {messages::chromeKeyAuthorizationUnsupported, Step::key},
    {messages::selectedIdentityNotFound, Step::key},
    {messages::selectedIdentityHasNoPrivateKey, Step::key},
    {messages::policyWriteFailed, Step::rule},
    {messages::policyVerificationFailed, Step::verification},
    {messages::chromeNotInstalled, Step::start},
    {messages::chromeLaunchFailed, Step::start}};

std::optional<Step> stepOf(const std::string& message) {
  for (const auto& [text, step] : documented) {
    if (message.starts_with(text.substr(0, text.find('<')))) {
      return step;
    }
  }
  return message.empty() ? std::optional(Step::end) : std::nullopt;
}

void expectInvariants(const json& answer, const json& before, const json& whole,
                      const json& after) {
  EXPECT_EQ(standin::liveObjects(), 0U);
  EXPECT_LE(standin::calls("SecKeychainItemSetAccess(").size(), 1U);
  EXPECT_EQ(after["output"].is_discarded(), after["message"] != "");
  const auto step = stepOf(after["message"]);
  ASSERT_TRUE(step) << after["message"];

  // What the run has not reached is unchanged.
  if (*step == Step::key) {
    EXPECT_EQ(after["unsynchronized"], before["unsynchronized"]);
    EXPECT_EQ(after["identities"], before["identities"]);
  }
  if (*step <= Step::rule) {
    EXPECT_EQ(after["rules"], before["rules"]);
  }
  if (*step <= Step::verification) {
    EXPECT_EQ(after["started"], before["started"]);
  }
  if (answer.contains("lies")) {
    return;
  }
  // What it has passed is complete.
  if (*step > Step::key) {
    EXPECT_EQ(after["identities"], whole["identities"]);
  }
  if (*step > Step::verification) {
    EXPECT_EQ(after["rules"], whole["rules"]);
    EXPECT_EQ(after["unsynchronized"], whole["unsynchronized"]);
  }
  if (*step == Step::end) {
    EXPECT_EQ(after["started"], whole["started"]);
    for (const json& element : after["output"]) {  // A listing may lack identities.
      const json& listed = whole["output"];
      EXPECT_NE(std::find(listed.begin(), listed.end(), element), listed.end()) << element;
    }
  }
}

class FaultSweep : public testing::TestWithParam<NamedScenario> {};

TEST_P(FaultSweep, KeepsInvariants) {
  const Scenario& scenario = GetParam().second;
  const json before = begin(scenario);
  const json whole = finish(scenario);
  ASSERT_EQ(whole["message"], "");
  const std::vector<std::string> trace = standin::trace();
  std::map<std::string, int> numbers;
  std::size_t cases = 0;
  for (std::size_t index = 0; index < trace.size(); ++index) {
    const std::string function = trace[index].substr(0, trace[index].find('('));
    const int number = ++numbers[function];
    for (json answer : faults.at(function)) {
      answer["call"] = number;
      SCOPED_TRACE(function + answer.dump(-1, ' ', true, json::error_handler_t::replace));
      begin(scenario);
      machine()["answers"][function].push_back(answer);
      const json after = finish(scenario);
      ASSERT_EQ(standin::trace().at(index), trace[index]);
      expectInvariants(answer, before, whole, after);
      ++cases;
    }
  }
  std::cout << "StandInFaultSweep: " << trace.size() << " calls, " << cases << " cases\n";
}

INSTANTIATE_TEST_SUITE_P(Of, FaultSweep, testing::ValuesIn(scenarios),
                         [](const auto& test) { return test.param.first; });

}  // namespace
}  // namespace lumaret::tests
