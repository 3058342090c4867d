// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"
#include "Tests/OverStandIn/Faults/Faults.hpp"

namespace lumaret::tests::faults {
namespace {

using Trace = std::vector<std::string>;

/// A run's phases follow one another; each begins with a call that tells it.
Phase phaseOf(const std::string& call, const std::vector<Step>& before) {
  const Phase last = before.empty() ? Phase::loading : before.back().phase;
  if (call.starts_with("SecItemCopyMatching(")) {
    return before.empty() ? Phase::loading : Phase::authorizing;
  }
  if (call.starts_with("CFPreferencesCopyValue(")) {
    return last == Phase::writingRules ? Phase::verifyingRules : Phase::readingRules;
  }
  if (call.starts_with("CFPreferencesSetValue(")) {
    return Phase::writingRules;
  }
  if (call.starts_with("NS")) {
    return call.ends_with(", awaited)") ? Phase::refreshing : Phase::opening;
  }
  return last;
}

/// The calls of a whole run.
std::vector<Step> steps(const Trace& trace) {
  std::vector<Step> steps;
  std::map<std::string, std::size_t> calls;
  for (const std::string& call : trace) {
    const std::size_t end = call.find('(');
    const std::string function = call.substr(0, end);
    steps.push_back({.phase = phaseOf(call, steps),
                     .function = function,
                     .argument = call.substr(end + 1, call.find_first_of(",)", end) - end - 1),
                     .number = ++calls[function]});
  }
  return steps;
}

Trace traceWithoutFault(const World& world) {
  (void)run(world);
  return standin::trace();
}

const Faults& faultsOf(const Step& step) { return table().at(step.phase).at(step.function); }

/// How many ways to fail a function has at the very least, by what it returns: a status is one of
/// fourteen, an object may be missing or come with a failure, and what may be any object may be
/// another one.
std::size_t fewestFaults(const std::string& function) {
  using Functions = std::set<std::string>;
  static const Functions ofStatus = {"SecACLSetContents", "SecKeychainItemSetAccess"};
  static const Functions ofObject = {
      "SecIdentityCopyPrivateKey",           "SecIdentityCopyCertificate",
      "SecKeychainItemCopyKeychain",         "SecKeychainItemCopyAccess",
      "SecTrustedApplicationCreateFromPath", "SecTrustedApplicationCopyData"};
  static const Functions ofArray = {"SecItemCopyMatching", "SecAccessCopyACLList",
                                    "SecACLCopyContents"};
  static const Functions ofObjectAlone = {"SecCertificateCopyValues", "SecACLCopyAuthorizations",
                                          "CFPreferencesCopyValue", "NSTask"};
  static const Functions ofNothing = {"CC_SHA256", "CFEqual", "CFStringCompareWithOptionsAndLocale",
                                      "NSRunningApplication"};
  return ofStatus.contains(function)                                       ? 14
         : ofObject.contains(function)                                     ? 14 + 2
         : ofArray.contains(function)                                      ? 14 + 3
         : ofObjectAlone.contains(function)                                ? 2
         : ofNothing.contains(function) || function.ends_with("GetTypeID") ? 0
                                                                           : 1;
}

class FaultSweep : public testing::TestWithParam<World> {
 protected:
  static std::size_t callsOf(const std::string& function) {
    return static_cast<std::size_t>(std::ranges::count_if(
        standin::trace(), [&](const auto& call) { return call.starts_with(function + "("); }));
  }

  /// The run ends as written down, and in any case nothing leaks or changes ahead of time.
  static void expect(const Outcome& written, const Outcome& outcome) {
    EXPECT_EQ(outcome.dump(1), written.dump(1));
    EXPECT_EQ(outcome["output"] == "", outcome["message"] != "");
    EXPECT_EQ(standin::liveObjects(), 0U);
    EXPECT_LE(callsOf("SecKeychainItemSetAccess"), 1U);
    const Outcome untouched = expected(GetParam(), {}, {.ending = Ending{Checkpoint::untouched}});
    for (const auto& [function, part] :
         {std::pair("SecKeychainItemSetAccess", "access lists"),
          std::pair("CFPreferencesSetValue", "rules"), std::pair("NSFileManager", "launches")}) {
      EXPECT_TRUE(callsOf(function) > 0 || outcome[part] == untouched[part]) << part;
    }
  }

  static void fail(const Step& step, std::size_t position, const Fault& fault, const Trace& trace) {
    SCOPED_TRACE(trace[position] + ", call " + std::to_string(position + 1) + ": " + fault.name);
    standin::Answer answer = fault.answer;
    answer.call = step.number;
    const Outcome outcome = run(GetParam(), step.function, answer);

    const auto length = static_cast<std::ptrdiff_t>(position) + 1;
    ASSERT_GT(standin::trace().size(), position);
    EXPECT_TRUE(std::equal(trace.begin(), trace.begin() + length, standin::trace().begin()));
    const auto& [seen, ending, ofSelectedAlone] = fault.consequence;
    if (answer.kind == standin::Answer::Kind::status && seen == Seen::asItIs && ending) {
      EXPECT_EQ(standin::trace().size(), position + 1) << "The run went on.";
    }
    expect(expected(GetParam(), step, fault.consequence), outcome);
  }
};

TEST_P(FaultSweep, WithoutAFault) { expect(expected(GetParam()), run(GetParam())); }

TEST_P(FaultSweep, OfEveryCallInEveryWay) {
  const Trace trace = traceWithoutFault(GetParam());
  const std::vector<Step> run = steps(trace);
  std::size_t cases = 0;
  for (std::size_t position = 0; position < run.size(); ++position) {
    const Faults& faults = faultsOf(run[position]);
    EXPECT_GE(faults.size(), fewestFaults(run[position].function)) << run[position].function;
    for (const Fault& fault : faults) {
      fail(run[position], position, fault, trace);
    }
    cases += faults.size();
  }
  std::cout << GetParam().name << ": " << trace.size() << " calls, " << cases << " cases\n";
}

INSTANTIATE_TEST_SUITE_P(Of, FaultSweep, testing::ValuesIn(worlds()),
                         [](const auto& test) { return test.param.name; });

TEST(FaultSweepAsAWhole, ReachesEveryRowOfTheTableAndHasNotShrunk) {
  std::size_t calls = 0;
  std::size_t cases = 0;
  std::set<const void*> reached;
  for (const World& world : worlds()) {
    for (const Step& step : steps(traceWithoutFault(world))) {
      const Faults& faults = faultsOf(step);
      ++calls;
      cases += faults.size();
      reached.insert(&faults);
      for (const Fault& fault : faults) {
        reached.insert(variationOf(world, step, fault.consequence.seen));
      }
    }
    for (const Variation& variation : world.variations) {
      EXPECT_TRUE(reached.contains(&variation)) << "A variation of " << world.name;
    }
  }
  for (const auto& [phase, rows] : table()) {
    for (const auto& [function, faults] : rows) {
      EXPECT_TRUE(reached.contains(&faults)) << function;
    }
  }
  std::cout << worlds().size() << " worlds, " << calls << " calls, " << cases << " cases\n";
  EXPECT_GE(cases, 4044U);
}

}  // namespace
}  // namespace lumaret::tests::faults
