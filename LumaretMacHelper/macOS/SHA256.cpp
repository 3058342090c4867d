// SPDX-License-Identifier: Apache-2.0
#include <CommonCrypto/CommonDigest.h>

#include <limits>
#include <stdexcept>

#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret {

std::array<std::uint8_t, 32> sha256(std::span<const std::uint8_t> bytes) {
  if (bytes.size() > std::numeric_limits<CC_LONG>::max()) {
    throw std::length_error("A certificate is too long.");
  }
  std::array<std::uint8_t, CC_SHA256_DIGEST_LENGTH> digest{};
  ::CC_SHA256(bytes.data(), static_cast<CC_LONG>(bytes.size()), digest.data());
  return digest;
}

}  // namespace lumaret
