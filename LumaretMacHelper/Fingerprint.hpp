// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret {

/// SHA-256 of a certificate's DER bytes as 64 lower-case hexadecimal digits.
inline std::string fingerprint(std::span<const std::uint8_t> certificate) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : sha256(certificate)) {
    text += digits[byte >> 4];
    text += digits[byte & 0x0f];
  }
  return text;
}

}  // namespace lumaret
