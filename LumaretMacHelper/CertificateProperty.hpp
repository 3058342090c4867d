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

/// One entry of a certificate's values, or a section of further entries. The label of a name's
/// attribute is its object identifier in dotted notation, such as "2.5.4.3".
struct CertificatePropertyDictionary {
  OptionalCertificateProperty label;
  OptionalCertificateProperty value;
};

/// A number that denotes a time counts seconds since 2001-01-01 00:00:00 UTC. std::monostate stands
/// for a value of any type that nothing here reads.
struct CertificateProperty {
  std::variant<std::monostate, std::string, double, Date, CertificatePropertyArray,
               CertificatePropertyDictionary>
      value;
};

/// Each is absent or, in a well-formed certificate, a dictionary.
struct CertificateValues {
  OptionalCertificateProperty subjectName;
  OptionalCertificateProperty issuerName;
  OptionalCertificateProperty validityNotAfter;
};

}  // namespace lumaret
