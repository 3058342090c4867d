// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Tests/OverStandIn/Faults/FaultRun.hpp"
#include "Tests/OverStandIn/Faults/FaultSteps.hpp"
#include "Tests/OverStandIn/Faults/FaultTable.hpp"
#include "Tests/OverStandIn/Faults/FaultWorlds.hpp"

namespace lumaret::tests::faults {

/// What the run is to come to when this step has this consequence.
Outcome expectation(const World& world, const Step& step, const Consequence& consequence);

}  // namespace lumaret::tests::faults
