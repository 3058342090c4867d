#pragma once

#include "FaultRun.hpp"
#include "FaultSteps.hpp"
#include "FaultTable.hpp"
#include "FaultWorlds.hpp"

namespace lumaret::faults {

/// What the run is to come to when this step has this consequence.
Outcome expectation(const World& world, const Step& step, const Consequence& consequence);

}  // namespace lumaret::faults
