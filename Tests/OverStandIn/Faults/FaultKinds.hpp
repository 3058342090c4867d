// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Tests/OverStandIn/Faults/FaultTable.hpp"

// What the table of faults is written with.
namespace lumaret::tests::faults {

/// What comes of a status, by the call that it came from.
struct StatusRow {
  std::int32_t status;
  Consequence ofQuery;
  /// While Chrome is authorized, from the five functions that read and change access lists.
  Consequence ofAccessList;
  /// While Chrome is authorized, from any other function.
  Consequence ofOther;
};

const std::vector<StatusRow>& statusTable();

using Faults = std::vector<Fault>;

Faults operator+(Faults left, const Faults& right);

/// A column of the table of statuses, but for the exceptions.
Faults statuses(Consequence StatusRow::*column,
                const std::map<std::int32_t, Consequence>& except = {});
/// Every status of that table, with one consequence.
Faults anyStatus(const Consequence& consequence);
Fault status(std::int32_t status, Consequence consequence);
/// A failure with -25293 that leaves an object all the same.
Fault failureWithObject(Consequence consequence);

// Success, with what is named.
Fault nothing(Consequence consequence);
Fault object(std::string name, standin::Value value, Consequence consequence);
Fault emptyArray(Consequence consequence);
Fault firstElement(Consequence consequence);
/// The function's own array, and in it a text that does not belong there: first, and last.
Faults foreignElements(const Consequence& consequence);
/// An object of each type that no function answers with where any object may be.
Faults otherTypes(const Consequence& consequence);
/// Each value that is no array of texts.
Faults noListsOfTexts(const Consequence& consequence);

}  // namespace lumaret::tests::faults
