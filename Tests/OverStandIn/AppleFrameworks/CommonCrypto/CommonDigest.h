// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the adapters use of CommonCrypto, with the types of Apple's own header.

#include <cstdint>

using CC_LONG = std::uint32_t;

#define CC_SHA256_DIGEST_LENGTH 32

extern "C" unsigned char* CC_SHA256(const void* data, CC_LONG length, unsigned char* digest);
