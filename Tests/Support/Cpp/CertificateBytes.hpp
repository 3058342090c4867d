// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "LumaretMacHelper/Contracts.hpp"

// If only the bytes of a certificate matter, they are a short string.
namespace lumaret::tests {

inline Bytes bytes(std::string_view text) { return {text.begin(), text.end()}; }

/// The id of an identity whose certificate has these bytes.
inline std::string idOf(std::string_view certificate) { return fingerprint(bytes(certificate)); }

}  // namespace lumaret::tests
