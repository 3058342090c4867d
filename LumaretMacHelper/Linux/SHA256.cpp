// SPDX-License-Identifier: Apache-2.0
#include <nettle/sha2.h>

#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret {

std::array<std::uint8_t, 32> sha256(std::span<const std::uint8_t> bytes) {
  static_assert(SHA256_DIGEST_SIZE == 32);
  sha256_ctx context{};
  sha256_init(&context);
  sha256_update(&context, bytes.size(), bytes.data());
  std::array<std::uint8_t, 32> digest{};
  sha256_digest(&context, digest.size(), digest.data());
  return digest;
}

}  // namespace lumaret
