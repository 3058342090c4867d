// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

namespace lumaret::tests::faults {

enum class State : std::uint8_t { usable, expired, withoutKey, withoutSubject };

/// An identity of the Keychain. Its name is its certificate's bytes and its common name.
struct Held {
  std::string name;
  /// Of its private key; absent from a token's.
  std::optional<standin::AccessList> accessList;
  State state = State::usable;
};

/// A Mac, one run of the tool on it, and what that run does when nothing fails.
struct World {
  std::string name;
  std::vector<std::string> arguments;
  std::vector<Held> held;
  /// Chrome's rules, or whatever is stored in their place; null when nothing is.
  nlohmann::json rules = nullptr;
  bool isChromeRunning = false;

  /// What a failure tells; empty when the run succeeds.
  std::string message = "";
  /// Of the first identity "ana", afterwards.
  std::optional<standin::AccessList> accessList = std::nullopt;
  nlohmann::json rulesAfterwards = nullptr;
  std::vector<std::string> launches = {};
};

inline void PrintTo(const World& world, std::ostream* out) { *out << world.name; }

const std::vector<World>& worlds();

// The starts of Chrome, as traced.
inline const std::string windowRequest =
    "NSTask(/Applications/Google Chrome.app/Contents/MacOS/Google Chrome, --new-window";
inline const std::string policyRefresh =
    "NSTask(/Applications/Google Chrome.app/Contents/MacOS/Google Chrome, "
    "--refresh-platform-policy, awaited)";

}  // namespace lumaret::tests::faults
