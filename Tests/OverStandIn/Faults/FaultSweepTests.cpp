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
#include "Tests/OverStandIn/SampleIdentities.hpp"
#include "Tests/Support/Cpp/Messages.hpp"

namespace lumaret::tests {
namespace {

using standin::machine;
using standin::object;
using standin::status;

// Faults

using Answers = std::vector<json>;

Answers operator+(Answers left, const Answers& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

const Answers statuses = {status(-128),
                          status(-25300),
                          status(-25304),
                          status(-25306),
                          status(-25243),
                          status(1),
                          {{"status", -25293}, {"leavesObject", true}}};
const Answers nothing = {standin::nothing()};
const Answers emptyArray = {object(json::array())};
const Answers foreignElements = {standin::foreignElement(0),
                                 standin::foreignElement(std::numeric_limits<int>::max())};
const Answers noBytes = {object(json::binary({}))};
const Answers otherBytes = {object(json::binary({1}))};
/// For functions that may return any object.
const Answers otherTypes = {object("text"),         object(7),
                            object(true),           object({{"date", 0}}),
                            object(json::object()), object(json::binary({1}))};

const json expired = certificateValues(json::array(), 0);

/// How each function can fail. A result that the framework declares with a specific type, such as
/// SecKeyRef, is never of another type.
const std::map<std::string, Answers> faults = {
    {"SecItemCopyMatching", statuses + nothing + emptyArray + foreignElements + otherTypes +
                                Answers{standin::firstElement()}},
    {"SecIdentityCopyPrivateKey", statuses + nothing},
    {"SecIdentityCopyCertificate", statuses + nothing},
    {"SecCertificateCopyValues", nothing + Answers{object(json::object()), object(expired)}},
    {"SecCertificateCopyData", nothing + noBytes},
    {"SecKeychainItemCopyKeychain", statuses + nothing},
    {"SecKeychainItemCopyAccess", statuses + nothing},
    {"SecAccessCopyACLList", statuses + nothing + emptyArray + foreignElements},
    {"SecACLCopyAuthorizations", nothing + foreignElements},
    {"SecACLCopyContents", statuses + foreignElements},
    {"SecTrustedApplicationCreateFromPath", statuses + nothing},
    {"SecTrustedApplicationCopyData", statuses + nothing},
    {"SecACLSetContents", statuses},
    {"SecKeychainItemSetAccess", statuses + Answers{{{"status", -25293}, {"storedEntries", 1}}}},
    {"CC_SHA256", {}},
    {"CFLocaleCopyCurrent", nothing},
    {"CFPreferencesCopyValue",
     otherTypes + Answers{object({"no rule", 7}), object(json::array({"\xed\xa0\x80"}))}},
    {"CFPreferencesSetValue", {status(-1)}},
    {"CFPreferencesSynchronize", {status(-1)}},
    {"NSFileManager", {status(-1)}},
    {"NSRunningApplication", {}},
    {"NSTask.waitUntilExit", nothing + Answers{status(1), status(255)}},
    {"NSTask", nothing + Answers{status(1)}}};

/// Answers that are not true. Such a run is that of another Mac.
const std::map<std::string, Answers> lies = {
    {"SecCertificateCopyValues",
     {object(certificateValues(json::array({property("2.5.4.3", "x")})))}},
    {"SecCertificateCopyData", otherBytes},
    {"SecACLCopyAuthorizations", emptyArray},
    {"SecACLCopyContents", nothing + emptyArray},
    {"SecTrustedApplicationCopyData", noBytes + otherBytes},
    {"CFPreferencesCopyValue",
     nothing + emptyArray + Answers{object(json::array({"another rule"}))}}};

// Macs

/// A Mac, and a run of the tool on it.
struct World {
  std::string name;
  json identities;
  json rules = json::array();
  bool isChromeRunning = true;
  std::string address = "";
  /// Otherwise the run activates the certificate "ana".
  bool lists = false;
};

void PrintTo(const World& world, std::ostream* out) { *out << world.name; }

const json mail = signingEntry({"/Mail"});
const json any = entry("kSecACLAuthorizationAny", {"/Zoom"}, "Cl\u00e9", 0x50);
const json decrypting = entry("kSecACLAuthorizationDecrypt", {"/Mail"});

json withValues(json identity, json values) {
  identity["values"] = std::move(values);
  return identity;
}

const json keyless = {{"certificate", "keyless"}};
const json old = withValues(identity("old"), expired);

const std::string anasRule =
    R"({"filter":{"ISSUER":{"CN":"Example CA"},"SUBJECT":{"CN":"ana"}},"pattern":"*"})";
const std::string otherRule =
    R"({"filter":{"ISSUER":{"CN":"Example CA"},"SUBJECT":{"CN":"Bea"}},"pattern":"*"})";
const std::string siteRule = R"({"pattern": "https://a.example"})";

const std::vector<World> worlds = {
    {.name = "ListsSeveralIdentities",
     .identities = {identity("zoe", json::array({mail})), identity("ana", json::array({openEntry})),
                    old, identity("ana", json::array({mail})), keyless,
                    withValues(identity("nameless"), certificateValues(json::array(), 9e9))},
     .lists = true},
    {.name = "TwoSigningEntriesWithoutChrome",
     .identities = json::array({identity("ana", {mail, decrypting, any})}),
     .isChromeRunning = false},
    {.name = "ChromeListedInTheSecondEntry",
     .identities =
         json::array({identity("ana", {mail, signingEntry({"/Zoom", chromeApplication})})}),
     .rules = {siteRule, "no rule"},
     .address = "https://a.example/"},
    {.name = "AnyApplicationInTheSecondEntry",
     .identities = json::array({identity("ana", {mail, openEntry, mail})})},
    {.name = "SeveralIdentities",
     .identities = {identity("zoe", json::array({mail})), old, identity("ana"), keyless},
     .rules = {siteRule, otherRule, "no rule", anasRule}}};

// Runs

const std::string domain = "com.google.Chrome";
const std::string anasFingerprint =
    "24d4b96f58da6d4a8512313bbd02a28ebf0ca95dec6e4c86ef78ce7f01e788ac";

/// What is stored, and what has been started.
json state() {
  return {{"identities", machine()["identities"]},
          {"rules", machine()["preferences"]},
          {"unsynchronized", machine()["unsynchronized"]},
          {"started", standin::calls("NSTask")}};
}

/// Replaces the Mac with that of the world. Returns its state.
json begin(const World& world) {
  standin::startOver();
  machine()["identities"] = world.identities;
  machine()["applications"][chromeApplication] = chromeApplication;
  machine()["preferences"][domain]["AutoSelectCertificateForUrls"] = world.rules;
  if (world.isChromeRunning) {
    machine()["runningApplications"] = {domain};
  }
  return state();
}

/// Returns the state afterwards, the message of the failure, and the output.
json run(const World& world) {
  std::vector<std::string> arguments = {"list"};
  if (!world.lists) {
    arguments = {"activate", "--fingerprint", anasFingerprint, "--url", world.address};
  }
  std::string message;
  testing::internal::CaptureStdout();
  try {
    LumaretMacHelper::run(arguments);
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

std::optional<Step> stepOf(const std::string& message, std::int32_t status) {
  for (const auto& [text, step] : documented) {
    const bool hasStatus = text.find("<status>") != std::string::npos;
    if (hasStatus
            ? message == messages::told(text, status) || message == messages::told(text, -2070)
            : message.starts_with(text.substr(0, text.find('<')))) {
      return step;
    }
  }
  return message.empty() ? std::optional(Step::end) : std::nullopt;
}

/// The identities once this many changed entries of their access lists are stored.
json storedSoFar(json identities, const json& whole, std::size_t count) {
  for (std::size_t index = 0; index < identities.size(); ++index) {
    for (std::size_t entry = 0; entry < whole[index].value("accessList", json()).size(); ++entry) {
      json& stored = identities[index]["accessList"][entry];
      if (count > 0 && stored != whole[index]["accessList"][entry]) {
        stored = whole[index]["accessList"][entry];
        --count;
      }
    }
  }
  return identities;
}

void expectInvariants(const json& answer, bool isTrue, const json& before, const json& whole,
                      const json& after) {
  EXPECT_EQ(standin::liveObjects(), 0U);
  EXPECT_LE(standin::calls("SecKeychainItemSetAccess(").size(), 1U);
  EXPECT_EQ(after["output"].is_discarded(), after["message"] != "");
  const auto step = stepOf(after["message"], answer.value("status", 0));
  ASSERT_TRUE(step) << after["message"];

  // What the run has not reached is unchanged.
  if (*step == Step::key) {
    EXPECT_EQ(after["unsynchronized"], before["unsynchronized"]);
    EXPECT_EQ(after["identities"], storedSoFar(before["identities"], whole["identities"],
                                               answer.value("storedEntries", 0U)));
  }
  if (*step <= Step::rule) {
    EXPECT_EQ(after["rules"], before["rules"]);
  }
  if (*step <= Step::verification) {
    EXPECT_EQ(after["started"], before["started"]);
  }
  if (!isTrue) {
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

class FaultSweep : public testing::TestWithParam<World> {};

TEST_P(FaultSweep, KeepsInvariants) {
  const json before = begin(GetParam());
  const json whole = run(GetParam());
  ASSERT_EQ(whole["message"], "");
  const std::vector<std::string> trace = standin::trace();
  std::map<std::string, int> numbers;
  std::size_t cases = 0;
  for (std::size_t index = 0; index < trace.size(); ++index) {
    const std::string function = trace[index].substr(0, trace[index].find('('));
    const int number = ++numbers[function];
    const auto lying = lies.find(function);
    const std::size_t trueCount = faults.at(function).size();
    const Answers answers = faults.at(function) + (lying == lies.end() ? Answers() : lying->second);
    for (std::size_t fault = 0; fault < answers.size(); ++fault) {
      json answer = answers[fault];
      answer["call"] = number;
      SCOPED_TRACE(trace[index] + " " +
                   answer.dump(-1, ' ', false, json::error_handler_t::replace));
      begin(GetParam());
      machine()["answers"][function].push_back(answer);
      const json after = run(GetParam());
      ASSERT_EQ(standin::trace().at(index), trace[index]);
      expectInvariants(answer, fault < trueCount, before, whole, after);
      ++cases;
    }
  }
  std::cout << "StandInFaultSweep: " << trace.size() << " calls, " << cases << " cases\n";
}

INSTANTIATE_TEST_SUITE_P(Of, FaultSweep, testing::ValuesIn(worlds),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace lumaret::tests
