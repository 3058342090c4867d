// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret {

struct CertificateProperty;

/// Absent (null) or a value.
using OptionalCertificateProperty = std::shared_ptr<const CertificateProperty>;

using CertificatePropertyArray = std::vector<CertificateProperty>;

/// One entry of a certificate's values: its label (for an attribute of a name, the attribute's
/// object identifier in dotted text) and its value, which may hold further entries.
struct CertificatePropertyDictionary {
  OptionalCertificateProperty label;
  OptionalCertificateProperty value;
};

/// A certificate value of unknown type. A number counts seconds since 2001-01-01 00:00:00 UTC where
/// it stands for a time; std::monostate is a value of any type that nothing here reads.
struct CertificateProperty {
  std::variant<std::monostate, std::string, double, Date, CertificatePropertyArray,
               CertificatePropertyDictionary>
      value;
};

/// The three values of a certificate that are asked for; each absent or, in a well-formed
/// certificate, a dictionary.
struct CertificateValues {
  OptionalCertificateProperty subjectName;
  OptionalCertificateProperty issuerName;
  OptionalCertificateProperty validityNotAfter;
};

}  // namespace lumaret
