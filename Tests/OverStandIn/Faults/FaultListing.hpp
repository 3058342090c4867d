// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <optional>
#include <string>

namespace lumaret::tests::faults {

/// The fingerprint of the certificate whose bytes are this name.
const std::string& idOf(const std::string& name);

/// A certificate as the list command shows it.
struct Listed {
  std::optional<std::string> commonName;
  std::optional<std::string> issuer = "Example CA";
};

/// By fingerprint.
using Listing = std::map<std::string, Listed>;

/// As the list command prints it.
std::string printed(const Listing& listing);

}  // namespace lumaret::tests::faults
