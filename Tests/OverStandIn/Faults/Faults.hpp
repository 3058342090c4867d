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

/// Whole runs of the tool, each with one framework call that fails: where the run ends, and what it
/// leaves of the Mac. What the tool does is not worked out again here. A fault that ends a run ends
/// it at a checkpoint of the run without that fault: the table says at which one, and with which
/// message. A fault that only shows the tool another Mac than there is has the run change what it
/// changes on such a Mac.
namespace lumaret::tests::faults {

/// What a run leaves behind, in the order in which it comes to be. A start of Chrome counts as soon
/// as it is asked for.
enum class Checkpoint : std::uint8_t { untouched, keyAllowed, ruleStored, refreshed, windowOpened };

struct Ending {
  Checkpoint checkpoint;
  /// Empty when the run succeeds. "<status>" in it stands for the status of the fault.
  std::string message = "";
  /// The rule was set, and is not synchronized.
  bool isRulePending = false;
  /// Of the entries of the access list that change, the first was stored before storing failed.
  bool isFirstEntryStored = false;
};

inline Ending ends(Checkpoint checkpoint, std::string message) {
  return {.checkpoint = checkpoint, .message = std::move(message)};
}

/// Makes another Mac of this one, given the first argument of the call that shows it.
using Change = std::function<void(standin::Machine&, const std::string& argument)>;

/// Ways to fail, each with a name for the reader of a failed test.
using Kinds = std::vector<std::pair<std::string, standin::Answer>>;

/// What comes of some faults: an end, or else what comes of a run without a fault on another Mac.
struct Row {
  Kinds kinds;
  std::variant<Ending, Change> consequence;
};

/// What a run is doing when it makes a call. Each phase begins with a call of SecItemCopyMatching,
/// CFPreferencesCopyValue or NSFileManager.
enum class Phase : std::uint8_t { loading, authorizing, storing, verifying, launching };

/// Every way in which each function can fail, by phase; none for one that cannot.
extern const std::map<Phase, std::map<std::string, std::vector<Row>>> table;

/// A Mac, one run of the tool on it, and what that leaves there without a fault.
struct World {
  std::string name;
  std::vector<standin::Identity> identities = {};
  /// Chrome's preferences: its rules, or whatever is in their place.
  standin::Dictionary preferences = {};
  /// The access list of the identity "ana" from Checkpoint::keyAllowed on, where it differs.
  std::optional<standin::AccessList> allowed = std::nullopt;
  /// Chrome's preferences from Checkpoint::ruleStored on, where they differ.
  standin::Dictionary stored = {};
  bool isChromeRunning = true;
  /// Lists, or else activates the certificate "ana".
  bool lists = false;
  std::string address = "";
  Ending ending = {.checkpoint = Checkpoint::windowOpened};
  /// The function whose faults make no difference here, whatever the table says.
  std::string indifferentTo = "";
};

inline void PrintTo(const World& world, std::ostream* out) { *out << world.name; }

extern const std::vector<World> worlds;

inline standin::Identity& named(standin::Machine& machine, const std::string& name) {
  return *std::ranges::find(machine.identities, name, &standin::Identity::name);
}

}  // namespace lumaret::tests::faults
