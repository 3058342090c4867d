// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

/// Whole runs of the tool, each with one framework call that fails. The tests check where the run
/// ends, and how it leaves the Mac. They do not implement the tool again. A fault that ends a run
/// ends it at a checkpoint of the run without that fault. The table says at which one, and with
/// which message. Another fault only makes the Mac look different to the tool. Then the run changes
/// the same as on a Mac that really is so.
namespace lumaret::tests::faults {

/// What a run has done, in order. A start of Chrome counts as soon as it is requested.
enum class Checkpoint : std::uint8_t { untouched, keyAllowed, ruleStored, refreshed, windowOpened };

struct Ending {
  Checkpoint checkpoint;
  /// Empty if the run succeeds. "<status>" stands for the status of the fault.
  std::string message = "";
  /// The rule was set, but not synchronized.
  bool isRulePending = false;
  /// The first changed entry of the access list was stored before storing failed.
  bool isFirstEntryStored = false;
};

inline Ending ends(Checkpoint checkpoint, std::string message) {
  return {.checkpoint = checkpoint, .message = std::move(message)};
}

/// Changes the Mac into the one that the tool sees. The argument is the first one of the call with
/// the fault.
using Change = std::function<void(standin::Machine&, const std::string& argument)>;

/// Ways to fail, each with a name for the output of a failed test.
using Kinds = std::vector<std::pair<std::string, standin::Answer>>;

/// The consequence of some faults: the end of the run, or a run like that on another Mac without a
/// fault.
struct Row {
  Kinds kinds;
  std::variant<Ending, Change> consequence;
};

/// The part of the run in which a call is made. Each phase begins with a call of
/// SecItemCopyMatching, CFPreferencesCopyValue or NSFileManager.
enum class Phase : std::uint8_t { loading, authorizing, storing, verifying, launching };

/// All ways in which each function can fail, by phase. A function that cannot fail has none.
extern const std::map<Phase, std::map<std::string, std::vector<Row>>> table;

/// A Mac, a run of the tool on it, and the state of the Mac after this run without a fault.
struct World {
  std::string name;
  std::vector<standin::Identity> identities = {};
  /// Chrome's preferences: its rules, or another value in place of them.
  standin::Dictionary preferences = {};
  /// The access list of the identity "ana" from Checkpoint::keyAllowed on, if it differs.
  std::optional<standin::AccessList> allowed = std::nullopt;
  /// Chrome's preferences from Checkpoint::ruleStored on, if they differ.
  standin::Dictionary stored = {};
  bool isChromeRunning = true;
  /// Whether the run lists. Otherwise it activates the certificate "ana".
  bool lists = false;
  std::string address = "";
  Ending ending = {.checkpoint = Checkpoint::windowOpened};
  /// A function whose faults have no effect in this world, whatever the table says.
  std::string indifferentTo = "";
};

inline void PrintTo(const World& world, std::ostream* out) { *out << world.name; }

extern const std::vector<World> worlds;

inline standin::Identity& named(standin::Machine& machine, const std::string& name) {
  return *std::ranges::find(machine.identities, name, &standin::Identity::name);
}

}  // namespace lumaret::tests::faults
