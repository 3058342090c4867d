// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

namespace standin {

/// The machine that a file describes, when the environment variable LUMARET_STAND_IN_MACHINE names
/// one; else an empty machine. A process with such a file checks at its end that it released every
/// object.
Machine readMachineFile();

/// Writes the machine's identities' access lists and its preferences back into that file, if any.
void writeMachineFile();

/// A date is an object with the one member "date"; the other way there is no date and no data.
Value valueOf(const nlohmann::json& description);
nlohmann::json descriptionOf(const Value& value);
/// Of an entry that has a description.
nlohmann::json descriptionOf(const AccessListEntry& entry);

}  // namespace standin
