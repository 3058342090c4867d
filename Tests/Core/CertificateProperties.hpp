// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"

namespace lumaret::tests {

inline OptionalCertificateProperty present(CertificateProperty property) {
  return std::make_shared<const CertificateProperty>(std::move(property));
}

inline CertificateProperty text(std::string value) { return {std::move(value)}; }

inline CertificateProperty entry(OptionalCertificateProperty label,
                                 OptionalCertificateProperty value) {
  return {CertificatePropertyDictionary{std::move(label), std::move(value)}};
}

inline CertificateProperty entry(std::string label, CertificateProperty value) {
  return entry(present(text(std::move(label))), present(std::move(value)));
}

inline CertificateProperty attribute(std::string identifier, std::string value) {
  return entry(std::move(identifier), text(std::move(value)));
}

/// A name, or a section of a name.
inline CertificateProperty section(std::string label, CertificatePropertyArray attributes) {
  return entry(std::move(label), {std::move(attributes)});
}

inline OptionalCertificateProperty name(CertificatePropertyArray attributes) {
  return present(section("Name", std::move(attributes)));
}

inline OptionalCertificateProperty notAfter(CertificateProperty value) {
  return present(entry("Not Valid After", std::move(value)));
}

}  // namespace lumaret::tests
