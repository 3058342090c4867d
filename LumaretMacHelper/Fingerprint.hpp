#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace lumaret {

/// SHA-256 (FIPS 180-4), from the platform's cryptography.
std::array<std::uint8_t, 32> sha256(std::span<const std::uint8_t> bytes);

/// SHA-256 of a certificate's DER bytes as 64 lower-case hexadecimal digits.
std::string fingerprint(std::span<const std::uint8_t> certificate);

}  // namespace lumaret
