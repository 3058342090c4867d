// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret::tests {

/// A certificate of which only the bytes matter.
inline Bytes bytes(std::string_view text) { return {text.begin(), text.end()}; }

/// The id of an identity whose certificate has these bytes.
inline std::string idOf(std::string_view certificate) { return fingerprint(bytes(certificate)); }

inline std::vector<std::string> displayNames(const std::vector<ClientIdentity>& identities) {
  std::vector<std::string> names;
  for (const ClientIdentity& identity : identities) {
    names.push_back(identity.displayName());
  }
  return names;
}

/// How GoogleTest prints an error if an expectation fails.
inline void PrintTo(const CertificateSelectorError& error, std::ostream* out) {
  *out << '"' << error.what() << '"';
}

/// The error of this type that the action throws, if any. Any other fails the test.
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
