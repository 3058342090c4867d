// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"
#include "Tests/OverStandIn/Faults/FaultModel.hpp"
#include "Tests/OverStandIn/Faults/FaultRun.hpp"
#include "Tests/OverStandIn/Faults/FaultSteps.hpp"
#include "Tests/OverStandIn/Faults/FaultTable.hpp"
#include "Tests/OverStandIn/Faults/FaultWorlds.hpp"

namespace lumaret::tests::faults {
namespace {

std::size_t callsOf(const std::string& function) {
  return static_cast<std::size_t>(
      std::count_if(standin::trace().begin(), standin::trace().end(),
                    [&](const auto& call) { return call.starts_with(function + "("); }));
}

std::vector<std::string> traceWithoutFault(const World& world) {
  build(world);
  (void)run(world);
  return standin::trace();
}

const Row& rowOf(const Step& step) {
  for (const Row& row : table()) {
    if (row.phase == step.phase && row.function == step.function) {
      return row;
    }
  }
  throw std::out_of_range("No row for " + step.function);
}

/// How many ways to fail a function has at the very least, by what it returns: a status is one of
/// fourteen, an object may be missing or come with a failure, and what may be any object may be
/// another one.
std::size_t fewestFaults(const std::string& function) {
  static const std::map<std::string, std::size_t> fewest = {
      {"SecItemCopyMatching", 14 + 3},
      {"SecIdentityCopyPrivateKey", 14 + 2},
      {"SecIdentityCopyCertificate", 14 + 2},
      {"SecKeychainItemCopyAccess", 14 + 2},
      {"SecAccessCopyACLList", 14 + 3},
      {"SecACLCopyContents", 14 + 3},
      {"SecACLSetContents", 14},
      {"SecKeychainItemSetAccess", 14},
      {"SecTrustedApplicationCreateFromPath", 14 + 2},
      {"SecTrustedApplicationCopyData", 14 + 2},
      {"SecCertificateCopyData", 1},
      {"SecCertificateCopyValues", 2},
      {"SecACLCopyAuthorizations", 2},
      {"CFLocaleCopyCurrent", 1},
      {"CFPreferencesCopyValue", 2},
      {"CFPreferencesSetValue", 1},
      {"CFPreferencesSynchronize", 1},
      {"CFURLCreateWithBytes", 1},
      {"CFURLCopyScheme", 1},
      {"NSFileManager", 1},
      {"NSTask", 2}};
  const auto found = fewest.find(function);
  return found == fewest.end() ? 0 : found->second;
}

std::size_t fewestFaults(const std::vector<Step>& run) {
  std::size_t sum = 0;
  for (const Step& step : run) {
    sum += fewestFaults(step.function);
  }
  return sum;
}

class FaultSweep : public testing::TestWithParam<World> {
 protected:
  static void expect(const Outcome& expected, const Outcome& outcome) {
    EXPECT_EQ(outcome, expected);
    EXPECT_EQ(outcome.standardOutput.empty(), !outcome.message.empty());
    EXPECT_EQ(standin::liveObjects(), 0U);
  }

  /// What holds whatever the table says.
  static void expectNothingTouchedTooEarly(const Outcome& outcome, const Step& step, bool fails) {
    const Outcome before = untouched(GetParam());
    const bool failedToStore = fails && step.function == "SecKeychainItemSetAccess";
    EXPECT_LE(callsOf("SecKeychainItemSetAccess"), 1U);
    if (callsOf("SecKeychainItemSetAccess") == 0 || failedToStore) {
      EXPECT_EQ(outcome.accessLists, before.accessLists);
    }
    if (callsOf("CFPreferencesSetValue") == 0) {
      EXPECT_EQ(outcome.rules, before.rules);
      EXPECT_EQ(outcome.rulesNotSynchronized, before.rulesNotSynchronized);
    }
    if (callsOf("NSFileManager") == 0) {
      EXPECT_TRUE(outcome.launches.empty());
    }
  }

  static void fail(const Step& step, std::size_t position, const Fault& fault,
                   const std::vector<std::string>& trace) {
    SCOPED_TRACE(trace[position] + ", call " + std::to_string(position + 1) + ": " + fault.name);
    build(GetParam());
    auto answer = fault.answer;
    standin::machine().answer(step.function, std::move(answer).onCall(step.number));
    const Outcome outcome = run(GetParam());

    const auto length = static_cast<std::ptrdiff_t>(position) + 1;
    ASSERT_GT(standin::trace().size(), position);
    EXPECT_TRUE(std::equal(trace.begin(), trace.begin() + length, standin::trace().begin()));
    const bool fails = fault.answer.kind == standin::Answer::Kind::status;
    if (fails && fault.consequence.effect == Effect::endsRun) {
      EXPECT_EQ(standin::trace().size(), position + 1) << "The run went on.";
    }
    expect(expectation(GetParam(), step, fault.consequence), outcome);
    expectNothingTouchedTooEarly(outcome, step, fails);
  }
};

TEST_P(FaultSweep, WithoutAFault) {
  const World& world = GetParam();
  build(world);
  const Outcome outcome = run(world);
  expect(expectation(world, {}, Effect::none), outcome);
  EXPECT_EQ(outcome.message, world.message);
  EXPECT_EQ(outcome.rules, world.rulesAfterwards);
  EXPECT_EQ(outcome.launches, world.launches);
  auto accessLists = untouched(world).accessLists;
  const auto selected = std::find_if(world.held.begin(), world.held.end(),
                                     [](const Held& held) { return held.name == "ana"; });
  if (selected != world.held.end()) {
    accessLists.at(static_cast<std::size_t>(selected - world.held.begin())) = world.accessList;
  }
  EXPECT_EQ(outcome.accessLists, accessLists);
}

TEST_P(FaultSweep, OfEveryCallInEveryWay) {
  const auto trace = traceWithoutFault(GetParam());
  const auto run = steps(trace);
  std::size_t cases = 0;
  for (std::size_t position = 0; position < run.size(); ++position) {
    for (const Fault& fault : rowOf(run[position]).faults) {
      fail(run[position], position, fault, trace);
      ++cases;
    }
  }
  std::cout << GetParam().name << ": " << trace.size() << " calls, " << cases << " cases\n";
  EXPECT_GE(cases, fewestFaults(run));
}

INSTANTIATE_TEST_SUITE_P(Of, FaultSweep, testing::ValuesIn(worlds()),
                         [](const auto& test) { return test.param.name; });

TEST(FaultSweepAsAWhole, ReachesEveryRowOfTheTableAndHasNotShrunk) {
  std::size_t calls = 0;
  std::size_t cases = 0;
  std::size_t fewest = 0;
  std::set<std::pair<Phase, std::string>> reached;
  for (const World& world : worlds()) {
    for (const Step& step : steps(traceWithoutFault(world))) {
      ++calls;
      fewest += fewestFaults(step.function);
      cases += rowOf(step).faults.size();
      reached.emplace(step.phase, step.function);
    }
  }
  std::cout << worlds().size() << " worlds, " << calls << " calls, " << cases << " cases\n";
  EXPECT_EQ(reached.size(), table().size()) << "A row that no run reaches proves nothing.";
  EXPECT_GE(cases, fewest);
  EXPECT_GE(cases, 4000U);
}

}  // namespace
}  // namespace lumaret::tests::faults
