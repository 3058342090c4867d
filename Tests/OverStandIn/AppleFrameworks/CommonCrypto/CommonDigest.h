// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the adapters use of CommonCrypto. Declarations.cpp compares it with Apple's own header.

#include <cstdint>

using CC_LONG = std::uint32_t;

#ifndef __APPLE__
#define CC_SHA256_DIGEST_LENGTH 32
#endif

extern "C" unsigned char* CC_SHA256(const void* data, CC_LONG length, unsigned char* digest);
