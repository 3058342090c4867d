// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "LumaretMacHelper/Contracts.hpp"
#include "LumaretMacHelper/Fingerprint.hpp"

namespace lumaret::tests {

inline const CertificatePrincipal noFields = {std::nullopt, std::nullopt, std::nullopt,
                                              std::nullopt};

inline Bytes bytes(std::string_view text) { return {text.begin(), text.end()}; }

/// The id of the identity whose certificate has these bytes.
inline std::string idOf(std::string_view certificate) { return fingerprint(bytes(certificate)); }

}  // namespace lumaret::tests
