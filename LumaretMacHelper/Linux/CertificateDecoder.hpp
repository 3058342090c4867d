// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <span>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"

namespace lumaret {

/// The names and the expiry of an X.509 certificate; nothing if its DER is malformed. Leaves out an
/// attribute that has no valid UTF-8 form, and an expiry that cannot be decoded.
std::optional<CertificateValues> decodeCertificate(std::span<const std::uint8_t> certificate);

}  // namespace lumaret
