// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstddef>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>

#include "LumaretMacHelper/LumaretMacHelper.hpp"
#include "Tests/OverStandIn/AppleFrameworks/MachineFile.hpp"
#include "Tests/OverStandIn/Faults/Faults.hpp"
#include "Tests/Support/Cpp/Messages.hpp"

namespace lumaret::tests::faults {
namespace {

using nlohmann::json;
using standin::Answer;
using standin::calls;
using standin::machine;
using standin::trace;
using Preferences = std::map<std::string, standin::Dictionary>;

const std::string domain = "com.google.Chrome";
const std::string anasFingerprint =
    "24d4b96f58da6d4a8512313bbd02a28ebf0ca95dec6e4c86ef78ce7f01e788ac";

/// The visible state of the Mac, and an outcome without a message and without output. An entry of
/// an access list is one string here, since it changes as a whole.
json outcome() {
  json accessLists = json::object();
  for (const auto& [name, certificate, values, privateKey] : machine().identities) {
    if (privateKey && privateKey->accessList) {
      for (const standin::AccessListEntry& entry : *privateKey->accessList) {
        accessLists[name].push_back(standin::descriptionOf(entry).dump());
      }
    }
  }
  const auto rulesIn = [](Preferences of) { return descriptionOf(standin::Value{of[domain]}); };
  return {{"access lists", accessLists},
          {"rules", rulesIn(machine().preferences)},
          {"refresh", calls("NSTask.waitUntilExit(")},
          {"window", calls("NSTask(")},
          {"rules not synchronized", rulesIn(machine().pendingPreferences)},
          {"message", ""},
          {"output", ""}};
}

/// Replaces the Mac with that of the world. Returns its visible state.
json begin(const World& world) {
  standin::startOver();
  machine().identities = world.identities;
  for (auto& [name, certificate, values, privateKey] : machine().identities) {
    if (privateKey) {  // Replace the key that is shared with the world.
      privateKey = std::make_shared<standin::PrivateKey>(*privateKey);
    }
  }
  machine().preferences[domain] = world.preferences;
  if (world.isChromeRunning) {
    machine().runningApplications.insert(domain);
  }
  return outcome();
}

json run(const World& world) {
  std::vector<std::string> arguments = {"list"};
  if (!world.lists) {
    arguments = {"activate", "--fingerprint", anasFingerprint};
  }
  if (!world.address.empty()) {
    arguments.insert(arguments.end(), {"--url", world.address});
  }
  std::string message;
  testing::internal::CaptureStdout();
  try {
    LumaretMacHelper::run(arguments);
  } catch (const std::exception& error) {
    message = error.what();
  }
  json after = outcome();
  after["message"] = message;
  after["output"] = testing::internal::GetCapturedStdout();
  return after;
}

/// The expected outcome of a run with this ending: the changes of a run without a fault up to it.
json expected(const World& world, const Ending& ending) {
  json end = begin(world);
  const json whole = run(world);
  if (ending.isFirstEntryStored) {
    const json changes = json::diff(end["access lists"], whole["access lists"]);
    end["access lists"] = end["access lists"].patch(json::array({changes.at(0)}));
  }
  if (ending.isRulePending) {
    end["rules not synchronized"] = whole["rules"];
  }
  const std::vector<std::string> parts = {"access lists", "rules", "refresh", "window"};
  for (std::size_t index = 0; index < static_cast<std::size_t>(ending.checkpoint); ++index) {
    end[parts[index]] = whole[parts[index]];
  }
  end["message"] = ending.message;
  end["output"] = ending.message.empty() ? whole["output"] : "";
  return end;
}

/// A call in a run.
struct Step {
  Phase phase;
  std::string function;
  /// Its first argument, as traced.
  std::string argument;
  /// Its number among the calls of the function in this run, from 1.
  std::size_t number;

  [[nodiscard]] const std::vector<Row>& rows() const { return table.at(phase).at(function); }
};

/// The expected outcome of a run with a fault at this step.
json expected(const World& world, const Step& step, const Row& row, std::int32_t status) {
  if (const auto* const change = std::get_if<Change>(&row.consequence)) {
    const json before = begin(world);
    (*change)(machine(), step.argument);
    const json otherBefore = outcome();
    return before.patch(json::diff(otherBefore, run(world)));
  }
  Ending ending = std::get<Ending>(row.consequence);
  if (ending.message.find("<status>") != std::string::npos) {
    ending.message = messages::told(ending.message, status);
  }
  return expected(world, step.function == world.indifferentTo ? world.ending : ending);
}

/// The steps of a run without a fault.
std::vector<Step> steps(const World& world) {
  begin(world);
  run(world);
  const std::set<std::string> beginners = {"SecItemCopyMatching", "CFPreferencesCopyValue",
                                           "NSFileManager"};
  std::vector<Step> steps;
  std::map<std::string, std::size_t> numbers;
  int phase = -1;
  for (const std::string& call : trace()) {
    const std::size_t end = call.find('(');
    const std::string function = call.substr(0, end);
    phase += beginners.contains(function) ? 1 : 0;
    steps.push_back({.phase = static_cast<Phase>(phase),
                     .function = function,
                     .argument = call.substr(end + 1, call.find_first_of(",)", end) - end - 1),
                     .number = ++numbers[function]});
  }
  return steps;
}

/// The run ends as expected. In any case it leaks nothing, stores an access list at most once, and
/// prints either a result or a failure.
void expectEnd(const json& outcome, const json& expected) {
  EXPECT_EQ(outcome.dump(1), expected.dump(1));
  EXPECT_EQ(standin::liveObjects(), 0U);
  EXPECT_LE(calls("SecKeychainItemSetAccess(").size(), 1U);
  EXPECT_EQ(outcome["output"] == "", outcome["message"] != "");
}

class FaultSweep : public testing::TestWithParam<World> {};

TEST_P(FaultSweep, ARunWithoutAFaultEndsAsItsWorldSays) {
  json end = expected(GetParam(), GetParam().ending);
  begin(GetParam());
  if (GetParam().allowed) {
    named(machine(), "ana").privateKey->accessList = GetParam().allowed;
  }
  if (!GetParam().stored.empty()) {
    machine().preferences[domain] = GetParam().stored;
  }
  const json written = outcome();
  end["access lists"] = written["access lists"];
  end["rules"] = written["rules"];
  begin(GetParam());
  expectEnd(run(GetParam()), end);
}

TEST_P(FaultSweep, EveryFaultOfEveryCallEndsAsTheTableSays) {
  const std::vector<Step> steps = faults::steps(GetParam());
  const std::vector<std::string> whole = trace();
  for (std::size_t index = 0; index < steps.size(); ++index) {
    const Step& step = steps[index];
    for (const Row& row : step.rows()) {
      for (const auto& [name, answer] : row.kinds) {
        SCOPED_TRACE(whole[index] + ", call " + std::to_string(index + 1) + ": " + name);
        const json end = expected(GetParam(), step, row, answer.failure);
        begin(GetParam());
        machine().answer(step.function, Answer(answer).onCall(step.number));
        expectEnd(run(GetParam()), end);

        // Up to the fault, the calls are those of the run without it. A reported failure ends the
        // run there.
        ASSERT_GT(trace().size(), index);
        EXPECT_TRUE(std::equal(whole.begin(),
                               whole.begin() + static_cast<std::ptrdiff_t>(index) + 1,
                               trace().begin()));
        if (answer.kind == Answer::Kind::status &&
            std::holds_alternative<Ending>(row.consequence)) {
          EXPECT_TRUE(trace().size() == index + 1 || step.function == "CFPreferencesSetValue");
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Of, FaultSweep, testing::ValuesIn(worlds),
                         [](const auto& test) { return test.param.name; });

TEST(FaultSweepAsAWhole, ReachesEveryRowOfTheTableAndHasAtLeast4220Cases) {
  std::size_t cases = 0;
  std::set<const void*> reached;
  for (const World& world : worlds) {
    for (const Step& step : steps(world)) {
      reached.insert(&step.rows());
      for (const Row& row : step.rows()) {
        cases += row.kinds.size();
      }
    }
  }
  std::cout << "StandInFaultSweep: " << worlds.size() << " worlds, " << cases << " cases\n";
  EXPECT_GE(cases, 4220U);
  for (const auto& [phase, functions] : table) {
    for (const auto& [function, rows] : functions) {
      EXPECT_TRUE(reached.contains(&rows)) << function;
    }
  }
}

}  // namespace
}  // namespace lumaret::tests::faults
