// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <Security/Security.h>

#include <optional>

#include "LumaretMacHelper/CertificateProperty.hpp"

namespace lumaret {

/// The certificate's subject, issuer and end of validity as the Security framework reads them;
/// nothing if it cannot read them. A string without a UTF-8 form, and a date that Date cannot
/// represent, become values of a type that nothing reads.
std::optional<CertificateValues> copyCertificateValues(SecCertificateRef certificate);

}  // namespace lumaret
