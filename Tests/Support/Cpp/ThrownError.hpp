// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <ostream>
#include <utility>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret::tests {

/// How GoogleTest prints an error if an expectation fails.
inline void PrintTo(const CertificateSelectorError& error, std::ostream* out) {
  *out << '"' << error.what() << '"';
}

/// Runs the action. Returns the error of this type that it threw, or std::nullopt if it threw none.
/// An error of another type fails the test.
template <typename Error, typename Action>
std::optional<Error> thrownBy(Action&& action) {
  try {
    std::forward<Action>(action)();
  } catch (const Error& error) {
    return error;
  }
  return std::nullopt;
}

template <typename Action>
std::optional<CertificateSelectorError> selectorErrorOf(Action&& action) {
  return thrownBy<CertificateSelectorError>(std::forward<Action>(action));
}

}  // namespace lumaret::tests
