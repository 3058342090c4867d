// SPDX-License-Identifier: Apache-2.0
#include <CommonCrypto/CommonDigest.h>
#include <nettle/sha2.h>

#include <algorithm>

#include "LumaretMacHelper/macOS/RunningApplications.hpp"
#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"

extern "C" unsigned char* CC_SHA256(const void* data, CC_LONG length, unsigned char* digest) {
  const standin::Call call("");
  sha256_ctx context;
  sha256_init(&context);
  sha256_update(&context, length, static_cast<const std::uint8_t*>(data));
  sha256_digest(&context, CC_SHA256_DIGEST_LENGTH, digest);
  return digest;
}

namespace lumaret {

// Replaces the only file that calls AppKit.
bool hasRunningApplication(const std::string& bundleIdentifier) {
  const standin::Call call(bundleIdentifier, "NSRunningApplication");
  const auto& running = standin::machine()["runningApplications"];
  return std::find(running.begin(), running.end(), bundleIdentifier) != running.end();
}

}  // namespace lumaret
