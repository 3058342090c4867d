// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <span>

#include "LumaretMacHelper/CertificateProperty.hpp"

namespace lumaret {

/// The names and the expiry of an X.509 certificate; nothing when its DER is broken. An attribute
/// whose value has no valid UTF-8 form is left out, and so is a time that does not decode.
std::optional<CertificateValues> decodeCertificate(std::span<const std::uint8_t> certificate);

}  // namespace lumaret
