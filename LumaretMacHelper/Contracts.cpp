// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret {

std::map<std::string, std::string> CertificatePrincipal::chromeFilterFields() const {
  std::map<std::string, std::string> fields;
  const auto keep = [&fields](const char* key, const std::optional<std::string>& value) {
    if (value && !value->empty()) {
      fields.emplace(key, *value);
    }
  };
  keep("CN", commonName);
  keep("L", locality);
  keep("O", organization);
  keep("OU", organizationalUnit);
  return fields;
}

std::string ClientIdentity::displayName() const {
  return subject.commonName.value_or("Unnamed certificate");
}

}  // namespace lumaret
