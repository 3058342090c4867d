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
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/LumaretMacHelper.hpp"
#include "Tests/OverStandIn/AppleFrameworks/MachineFile.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"
#include "Tests/Support/Cpp/Messages.hpp"

namespace lumaret::tests {
namespace {

using nlohmann::json;
using standin::Answer;
using standin::calls;
using standin::List;
using standin::machine;
using standin::trace;

// Faults

struct Fault {
  std::string name;
  Answer answer;
  /// The call says something else than what is true. The run is that of another Mac.
  bool lies = false;
};

using Faults = std::vector<Fault>;

Faults operator+(Faults left, const Faults& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Faults status(std::int32_t status) {
  return {{"status " + std::to_string(status), Answer::status(status)}};
}

Faults object(std::string name, standin::Value value) {
  return {{std::move(name), Answer::object(std::move(value))}};
}

Faults lying(Faults faults) {
  std::ranges::for_each(faults, [](Fault& fault) { fault.lies = true; });
  return faults;
}

const Faults anyStatus = status(-128) + status(-25300) + status(-25304) + status(-25306) +
                         status(-25243) + status(-4) + status(1) +
                         Faults{{"a failure with an object", Answer::statusAndObject(-25293)}};
const Faults nothing = {{"nothing", Answer::nothing()}};
const Faults emptyArray = object("an empty array", {List()});
const Faults noBytes = object("no bytes", {standin::Bytes()});
const Faults otherBytes = object("other bytes", {standin::Bytes{1}});
const Faults foreignElements = {
    {"a foreign first element", Answer::foreignElement(0)},
    {"a foreign last element", Answer::foreignElement(std::numeric_limits<std::size_t>::max())}};
/// For functions that may return any object.
const Faults otherTypes = object("a string", text(u"text")) + object("a number", {7.0}) +
                          object("a boolean", {true}) + object("a date", {farAhead}) + otherBytes +
                          object("a dictionary", {standin::Dictionary()});

const standin::Value expired = {standin::Date{0}};
const standin::Dictionary otherNames = certificateValues({attribute(u"2.5.4.3", u"x")}, {farAhead});

/// How each function can fail. A result that the framework declares with a specific type, such as
/// SecKeyRef, is never of another type.
const std::map<std::string, Faults> faults = {
    {"SecItemCopyMatching", anyStatus + nothing + emptyArray + foreignElements + otherTypes +
                                Faults{{"its first element alone", Answer::firstElement()}}},
    {"SecIdentityCopyPrivateKey", anyStatus + nothing},
    {"SecIdentityCopyCertificate", anyStatus + nothing},
    {"SecCertificateCopyValues",
     nothing + object("no value", {standin::Dictionary()}) +
         object("an expiry in the past", {certificateValues({}, expired)}) +
         lying(object("other names", {otherNames}))},
    {"SecCertificateCopyData", nothing + noBytes + lying(otherBytes)},
    {"SecKeychainItemCopyKeychain", anyStatus + nothing},
    {"SecKeychainItemCopyAccess", anyStatus + nothing},
    {"SecAccessCopyACLList", anyStatus + nothing + emptyArray + foreignElements},
    {"SecACLCopyAuthorizations", nothing + foreignElements + lying(emptyArray)},
    {"SecACLCopyContents", anyStatus + foreignElements + lying(nothing + emptyArray)},
    {"SecTrustedApplicationCreateFromPath", anyStatus + nothing},
    {"SecTrustedApplicationCopyData", anyStatus + nothing + lying(noBytes + otherBytes)},
    {"SecACLSetContents", anyStatus},
    {"SecKeychainItemSetAccess",
     anyStatus + Faults{{"a failure after an entry", Answer::status(-25293).afterEntries(1)}}},
    {"CC_SHA256", {}},
    {"CFLocaleCopyCurrent", nothing},
    {"CFStringCompareWithOptionsAndLocale", {}},
    {"CFPreferencesCopyValue",
     otherTypes + object("an array with a number", {List{text(u"no rule"), {7.0}}}) +
         object("an array with a string without a UTF-8 form", {List{text({0xd800})}}) +
         lying(nothing + emptyArray + object("another rule", {List{text(u"another rule")}}))},
    {"CFPreferencesSetValue", status(-1)},
    {"CFPreferencesSynchronize", status(-1)},
    {"NSFileManager", status(-1)},
    {"NSRunningApplication", {}},
    {"NSTask.waitUntilExit", nothing + status(1) + status(255)},
    {"NSTask", nothing + status(1)}};

// Macs

/// A Mac, and a run of the tool on it.
struct World {
  std::string name;
  std::vector<standin::Identity> identities;
  std::vector<std::string> rules = {};
  bool isChromeRunning = true;
  std::string address = "";
  /// Otherwise the run activates the certificate "ana".
  bool lists = false;
};

void PrintTo(const World& world, std::ostream* out) { *out << world.name; }

const standin::AccessListEntry mail = signingEntry({"/Mail"});
const standin::AccessListEntry any = {{"kSecACLAuthorizationAny"}, {{"/Zoom"}}, u"Cl\u00e9", 0x50};
const standin::AccessListEntry open = {{"kSecACLAuthorizationAny"}, std::nullopt, u"open", 0};
const standin::AccessListEntry decrypting = {{"kSecACLAuthorizationDecrypt"}, {{"/Mail"}}, u"", 0};

const standin::Identity keyless = {"keyless", {1}, {}, nullptr};

standin::Identity withValues(standin::Identity identity, standin::Dictionary values) {
  identity.certificateValues = std::move(values);
  return identity;
}

const standin::Identity old = withValues(identity("old"), certificateValues({}, expired));
const standin::Identity nameless = withValues(identity("nameless"), certificateValues({}, {9e9}));

const std::string anasRule =
    R"({"filter":{"ISSUER":{"CN":"Example CA"},"SUBJECT":{"CN":"ana"}},"pattern":"*"})";
const std::string otherRule =
    R"({"filter":{"ISSUER":{"CN":"Example CA"},"SUBJECT":{"CN":"Bea"}},"pattern":"*"})";
const std::string siteRule = R"({"pattern": "https://a.example"})";

const std::vector<World> worlds = {
    {.name = "ListsSeveralIdentities",
     .identities = {identity("zoe", {mail}), identity("ana", {open}), old, identity("ana", {mail}),
                    identity("Bea", {decrypting}), keyless, nameless},
     .lists = true},
    {.name = "TwoSigningEntriesWithoutChrome",
     .identities = {identity("ana", {mail, decrypting, any})},
     .isChromeRunning = false},
    {.name = "ChromeListedInTheSecondEntry",
     .identities = {identity("ana", {mail, signingEntry({"/Zoom", chromeApplication})})},
     .rules = {siteRule, "no rule"},
     .address = "https://a.example/"},
    {.name = "AnyApplicationInTheSecondEntry", .identities = {identity("ana", {mail, open, mail})}},
    {.name = "SeveralIdentities",
     .identities = {identity("zoe", {mail}), old, identity("ana", {signingEntry({})}), keyless},
     .rules = {siteRule, otherRule, "no rule", anasRule}},
    {.name = "ActivatedBefore",
     .identities = {identity("ana", {signingEntry({chromeApplication}), mail})},
     .rules = {"no rule", anasRule}}};

// Runs

const std::string domain = "com.google.Chrome";
const std::string anasFingerprint =
    "24d4b96f58da6d4a8512313bbd02a28ebf0ca95dec6e4c86ef78ce7f01e788ac";

/// What is stored, and what has been started.
json state() {
  json accessLists = json::array();
  for (const standin::Identity& identity : machine().identities) {
    for (const auto& entry :
         identity.privateKey ? *identity.privateKey->accessList : standin::AccessList()) {
      accessLists.push_back(standin::descriptionOf(entry));
    }
  }
  const auto rulesIn = [](std::map<std::string, standin::Dictionary> preferences) {
    return descriptionOf(standin::Value{preferences[domain]});
  };
  return {{"key", accessLists},
          {"rules", rulesIn(machine().preferences)},
          {"pending rules", rulesIn(machine().pendingPreferences)},
          {"started", calls("NSTask")}};
}

/// Replaces the Mac with that of the world. Returns its state.
json begin(const World& world) {
  standin::startOver();
  machine().identities = world.identities;
  for (standin::Identity& identity : machine().identities) {
    if (identity.privateKey) {  // Replace the key that is shared with the world.
      identity.privateKey = std::make_shared<standin::PrivateKey>(*identity.privateKey);
    }
  }
  machine().preferences[domain] = {
      {u"AutoSelectCertificateForUrls", standin::valueOf(world.rules)}};
  if (world.isChromeRunning) {
    machine().runningApplications.insert(domain);
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

void expectInvariants(const Fault& fault, const json& before, const json& whole,
                      const json& after) {
  EXPECT_EQ(standin::liveObjects(), 0U);
  EXPECT_LE(calls("SecKeychainItemSetAccess(").size(), 1U);
  EXPECT_EQ(after["output"].is_discarded(), after["message"] != "");
  const auto step = stepOf(after["message"], fault.answer.failure);
  ASSERT_TRUE(step) << after["message"];

  // What the run has not reached is unchanged.
  if (*step == Step::key) {
    EXPECT_EQ(after["pending rules"], before["pending rules"]);
    for (std::size_t index = 0; index < before["key"].size(); ++index) {
      EXPECT_TRUE(after["key"][index] == before["key"][index] ||
                  (fault.answer.storedEntries > 0 && after["key"][index] == whole["key"][index]))
          << after["key"][index];
    }
  }
  if (*step <= Step::rule) {
    EXPECT_EQ(after["rules"], before["rules"]);
  }
  if (*step <= Step::verification) {
    EXPECT_EQ(after["started"], before["started"]);
  }
  if (fault.lies) {
    return;
  }
  // What it has passed is complete.
  if (*step > Step::key) {
    EXPECT_EQ(after["key"], whole["key"]);
  }
  if (*step > Step::verification) {
    EXPECT_EQ(after["rules"], whole["rules"]);
    EXPECT_EQ(after["pending rules"], whole["pending rules"]);
  }
  if (*step == Step::end) {
    EXPECT_EQ(after["started"], whole["started"]);
    for (const json& element : after["output"]) {  // A listing may lack identities.
      EXPECT_NE(std::ranges::find(whole["output"], element), whole["output"].end()) << element;
    }
  }
}

class FaultSweep : public testing::TestWithParam<World> {};

TEST_P(FaultSweep, KeepsInvariants) {
  const json before = begin(GetParam());
  const json whole = run(GetParam());
  ASSERT_EQ(whole["message"], "");
  const std::vector<std::string> wholeTrace = trace();
  std::map<std::string, std::size_t> numbers;
  std::size_t cases = 0;
  for (std::size_t index = 0; index < wholeTrace.size(); ++index) {
    const std::string function = wholeTrace[index].substr(0, wholeTrace[index].find('('));
    const std::size_t number = ++numbers[function];
    for (const Fault& fault : faults.at(function)) {
      SCOPED_TRACE(wholeTrace[index] + ", call " + std::to_string(index + 1) + ": " + fault.name);
      begin(GetParam());
      machine().answer(function, Answer(fault.answer).onCall(number));
      const json after = run(GetParam());
      ASSERT_EQ(trace().at(index), wholeTrace[index]);
      expectInvariants(fault, before, whole, after);
      ++cases;
    }
  }
  std::cout << "StandInFaultSweep: " << wholeTrace.size() << " calls, " << cases << " cases\n";
}

INSTANTIATE_TEST_SUITE_P(Of, FaultSweep, testing::ValuesIn(worlds),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace lumaret::tests
