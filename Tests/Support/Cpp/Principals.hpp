// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret::tests {

inline const CertificatePrincipal noFields = {std::nullopt, std::nullopt, std::nullopt,
                                              std::nullopt};

inline std::vector<std::string> displayNames(const std::vector<ClientIdentity>& identities) {
  std::vector<std::string> names;
  for (const ClientIdentity& identity : identities) {
    names.push_back(identity.displayName());
  }
  return names;
}

}  // namespace lumaret::tests
