// SPDX-License-Identifier: Apache-2.0
// Compiled for macOS, declares everything first as Apple's own headers do and then as the stand-in
// does. The compiler refuses a type that differs. Numbers are compared here.

#include <CommonCrypto/CommonDigest.h>
#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>

#ifdef __APPLE__
#include "Tests/OverStandIn/AppleFrameworks/CommonCrypto/CommonDigest.h"
#include "Tests/OverStandIn/AppleFrameworks/CoreFoundationStandIn/CoreFoundation/CoreFoundation.h"
#include "Tests/OverStandIn/AppleFrameworks/Security/Security.h"
#endif

static_assert(kCFCompareLessThan == -1 && kCFCompareEqualTo == 0 && kCFCompareGreaterThan == 1);
static_assert(kCFNumberDoubleType == 13);
static_assert(kCFStringEncodingUTF8 == 0x08000100);
static_assert(kCFCompareCaseInsensitive == 1 && kCFCompareLocalized == 32);
static_assert(kCFStringNormalizationFormC == 2);
static_assert(errSecSuccess == 0);
static_assert(errSecInternalComponent == -2070);
static_assert(errSecNoSuchKeychain == -25294);
static_assert(errSecItemNotFound == -25300);
static_assert(errSecInvalidItemRef == -25304);
static_assert(errSecNoSuchClass == -25306);
static_assert(kSecKeyUsageDigitalSignature == 1);
static_assert(CC_SHA256_DIGEST_LENGTH == 32);
