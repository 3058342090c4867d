// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/Faults/FaultKinds.hpp"

#include <limits>
#include <utility>

#include "Tests/OverStandIn/Faults/FaultMessages.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"

namespace lumaret::tests::faults {

using standin::Answer;
using standin::Bytes;
using standin::Dictionary;
using standin::List;

const std::vector<StatusRow>& statusTable() {
  static const std::vector<StatusRow> rows = {
      {-128, unreadable, cancelled, cancelled},
      {-25300, Effect::noIdentities, notAuthorized, notAuthorized},
      {-25304, unreadable, unsupported, notAuthorized},
      {-25306, unreadable, unsupported, notAuthorized},
      {-2070, unreadable, notAuthorized, notAuthorized},
      {-4, unreadable, unsupported, unsupported},
      {-25256, unreadable, unsupported, unsupported},
      {-67734, unreadable, unsupported, unsupported},
      {-67737, unreadable, unsupported, unsupported},
      {-67739, unreadable, unsupported, unsupported},
      {-67735, unreadable, notAuthorized, notAuthorized},
      {-67738, unreadable, notAuthorized, notAuthorized},
      {-25293, unreadable, notAuthorized, notAuthorized},
      {1, unreadable, notAuthorized, notAuthorized},
  };
  return rows;
}

Faults operator+(Faults left, const Faults& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Faults statuses(Consequence StatusRow::*column, const std::map<std::int32_t, Consequence>& except) {
  Faults faults;
  for (const StatusRow& row : statusTable()) {
    const auto exception = except.find(row.status);
    faults.push_back(
        status(row.status, exception == except.end() ? row.*column : exception->second));
  }
  return faults;
}

Faults anyStatus(const Consequence& consequence) {
  Faults faults;
  for (const StatusRow& row : statusTable()) {
    faults.push_back(status(row.status, consequence));
  }
  return faults;
}

Fault status(std::int32_t status, Consequence consequence) {
  consequence.message = told(std::move(consequence.message), status);
  return {"status " + std::to_string(status), Answer::status(status), std::move(consequence)};
}

Fault failureWithObject(Consequence consequence) {
  constexpr std::int32_t status = -25293;
  consequence.message = told(std::move(consequence.message), status);
  return {"a failure with an object", Answer::statusAndObject(status), std::move(consequence)};
}

Fault nothing(Consequence consequence) {
  return {"nothing", Answer::nothing(), std::move(consequence)};
}

Fault object(std::string name, standin::Value value, Consequence consequence) {
  return {std::move(name), Answer::object(std::move(value)), std::move(consequence)};
}

Fault emptyArray(Consequence consequence) {
  return object("an empty array", {List()}, std::move(consequence));
}

Fault firstElement(Consequence consequence) {
  return {"its first element alone", Answer::firstElement(), std::move(consequence)};
}

Faults foreignElements(const Consequence& consequence) {
  constexpr auto last = std::numeric_limits<std::size_t>::max();
  return {{"a foreign first element", Answer::foreignElement(0), consequence},
          {"a foreign last element", Answer::foreignElement(last), consequence}};
}

Faults otherTypes(const Consequence& consequence) {
  return {object("a text", text(u"text"), consequence),
          object("a number", {7.0}, consequence),
          object("a boolean", {true}, consequence),
          object("a date", {farAhead}, consequence),
          object("data", {Bytes{1}}, consequence),
          object("a dictionary", {Dictionary()}, consequence)};
}

Faults noListsOfTexts(const Consequence& consequence) {
  return otherTypes(consequence) +
         Faults{object("an array with a number", {List{text(u"no rule"), {7.0}}}, consequence),
                object("an array in an array", {List{{List{text(u"no rule")}}}}, consequence),
                object("a text without a UTF-8 form", {List{text({0xd800})}}, consequence)};
}

std::string told(std::string message, std::int32_t status) {
  const std::string place = "<status>";
  const std::size_t start = message.find(place);
  return start == std::string::npos ? message
                                    : message.replace(start, place.size(), std::to_string(status));
}

}  // namespace lumaret::tests::faults
