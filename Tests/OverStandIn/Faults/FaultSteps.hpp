// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Tests/OverStandIn/Faults/FaultTable.hpp"

namespace lumaret::tests::faults {

/// A call of a run.
struct Step {
  Phase phase = Phase::loading;
  std::string function;
  /// The first one, as traced.
  std::string argument;
  /// Among the run's calls of the function, from 1.
  std::size_t number = 0;
  /// How many equal calls came before it in the phase.
  std::size_t equalBefore = 0;
};

/// The calls of a whole run.
std::vector<Step> steps(const std::vector<std::string>& trace);

}  // namespace lumaret::tests::faults
