// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

/// Whole runs of the tool, each with one framework call that fails: where the run ends, and what it
/// leaves of the Mac. What the tool does is not worked out again here: it is written down, in the
/// table of faults and with each world.
namespace lumaret::tests::faults {

/// What a run leaves behind, in the order in which it comes to be. A start of Chrome counts as soon
/// as it is asked for.
enum class Checkpoint : std::uint8_t { untouched, keyAllowed, ruleStored, refreshed, windowOpened };

struct Ending {
  Checkpoint checkpoint;
  /// Empty when the run succeeds.
  std::string message = "";
  /// The rule was set, and is not synchronized.
  bool isRulePending = false;
  /// So many entries of the access list were stored before storing it failed.
  std::size_t storedEntries = 0;
};

/// What a run is doing when it makes a call.
enum class Phase : std::uint8_t {
  loading,
  authorizing,
  readingRules,
  writingRules,
  verifyingRules,
  opening,
  refreshing
};

/// What the tool is made to see by a fault that is no failure in itself.
enum class Seen : std::uint8_t {
  asItIs,
  // By the listing
  noIdentities,
  firstIdentityAlone,
  identityLeftOut,
  anotherCertificate,  ///< The one whose only byte is 1.
  noSubject,           ///< In a certificate that has not expired.
  anotherName,         ///< "someone", without an issuer, in a certificate that has not expired.
  // By the authorization of the key
  firstMatchAlone,
  noMatch,
  noSignature,  ///< The entry lets nobody sign.
  anyApplication,
  noApplication,
  unknownApplication,
  // Afterwards
  noRules,
  rulesAsBefore,
};

struct Consequence {
  Seen seen = Seen::asItIs;
  /// Of an activation. Absent: as without the fault.
  std::optional<Ending> ending = std::nullopt;
  /// On another identity than the selected one, the fault changes nothing of an activation.
  bool ofSelectedAlone = false;
};

struct Fault {
  std::string name;
  standin::Answer answer;
  Consequence consequence;
};

using Faults = std::vector<Fault>;

/// Every way in which each function can fail, by phase; none for one that cannot.
const std::map<Phase, std::map<std::string, Faults>>& table();

enum class State : std::uint8_t { usable, expired, withoutKey, withoutSubject };

/// An identity of the Keychain.
struct Held {
  /// In the trace.
  std::string name;
  /// Its bytes, and its common name.
  std::string certificate = name;
  State state = State::usable;
  /// Of its private key; absent from a token's.
  std::optional<standin::AccessList> accessList = std::nullopt;
  /// The same from Checkpoint::keyAllowed on, where it differs.
  std::optional<standin::AccessList> allowed = std::nullopt;
};

/// What comes of something that is seen, where a world differs from the table.
struct Variation {
  Seen seen;
  /// The first argument of the call; any when empty.
  std::string of = "";
  /// Absent: as without the fault.
  std::optional<Ending> ending = std::nullopt;
  /// In the place of what the identity "ana" has at Checkpoint::keyAllowed.
  std::optional<standin::AccessList> allowed = std::nullopt;
};

/// A Mac, one run of the tool on it, and what there is at each checkpoint.
struct World {
  std::string name;
  /// Lists, or else activates the certificate "ana".
  bool lists = false;
  std::string address = "";
  std::vector<Held> held = {};
  bool isChromeRunning = true;
  /// Chrome's rules, or whatever is in their place; null when nothing is.
  nlohmann::json rules = nullptr;
  /// The same from Checkpoint::ruleStored on.
  nlohmann::json storedRules = nullptr;
  /// Without a fault.
  Ending ending = {.checkpoint = Checkpoint::windowOpened};
  std::vector<Variation> variations = {};
};

inline void PrintTo(const World& world, std::ostream* out) { *out << world.name; }

const std::vector<World>& worlds();

// The rules for the certificate "ana", and for one that is seen with another name.
inline constexpr const char* anasRule =
    R"({"filter":{"ISSUER":{"CN":"Example CA"},"SUBJECT":{"CN":"ana"}},"pattern":"*"})";
inline constexpr const char* someonesRule =
    R"({"filter":{"SUBJECT":{"CN":"someone"}},"pattern":"*"})";

/// A call of a run.
struct Step {
  Phase phase = Phase::loading;
  std::string function;
  /// The first one, as traced.
  std::string argument;
  /// Among the run's calls of the function, from 1.
  std::size_t number = 0;
};

/// What a run prints and tells, and what it leaves of the Mac.
using Outcome = nlohmann::json;

/// Puts the world in the place of the Mac, lets the function answer so, and runs the tool.
Outcome run(const World& world, const std::string& function = "",
            const std::optional<standin::Answer>& answer = std::nullopt);

/// The world's own word on what is seen at this step; null where the table's holds.
const Variation* variationOf(const World& world, const Step& step, Seen seen);

/// What the run is to come to when a fault at this step has this consequence.
Outcome expected(const World& world, const Step& step = {}, const Consequence& consequence = {});

}  // namespace lumaret::tests::faults
