// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

namespace standin {

/// The machine that the file LUMARET_STAND_IN_MACHINE describes, or an empty machine if that
/// variable is not set. A process with such a file checks at its end that it has released every
/// object.
Machine readMachineFile();

/// Writes the access lists and the preferences of the machine back to that file, if there is one.
void writeMachineFile();

/// Converts from JSON. A date is an object with the only member "date".
Value valueOf(const nlohmann::json& description);
/// Converts to JSON. The value must not contain a date or data.
nlohmann::json descriptionOf(const Value& value);
/// Converts an entry that has a description.
nlohmann::json descriptionOf(const AccessListEntry& entry);

}  // namespace standin
