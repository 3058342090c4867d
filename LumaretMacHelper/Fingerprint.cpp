// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Fingerprint.hpp"

#include <string_view>

#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret {

std::string fingerprint(std::span<const std::uint8_t> certificate) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : sha256(certificate)) {
    text += digits[byte >> 4];
    text += digits[byte & 0x0f];
  }
  return text;
}

}  // namespace lumaret
