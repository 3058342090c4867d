// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace lumaret {

/// SHA-256 of a certificate's DER bytes as 64 lower-case hexadecimal digits.
std::string fingerprint(std::span<const std::uint8_t> certificate);

}  // namespace lumaret
