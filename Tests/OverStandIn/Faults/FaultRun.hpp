// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Tests/OverStandIn/Faults/FaultWorlds.hpp"

namespace lumaret::tests::faults {

/// What a run printed and told, and what it left behind.
struct Outcome {
  std::string standardOutput;
  /// Of the failure; empty after success.
  std::string message;
  /// Of each identity's key.
  std::vector<std::optional<standin::AccessList>> accessLists;
  /// Null where there are none.
  nlohmann::json rules;
  nlohmann::json rulesNotSynchronized;
  std::vector<std::string> launches;

  bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& outcome, std::ostream* out);

/// The world before the run, and nothing printed.
Outcome untouched(const World& world);

/// Puts the world in the place of the Mac.
void build(const World& world);

/// Runs the tool on that Mac.
Outcome run(const World& world);

}  // namespace lumaret::tests::faults
