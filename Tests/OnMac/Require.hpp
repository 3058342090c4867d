// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <Security/Security.h>

#include <stdexcept>
#include <string>

namespace lumaret::tests {

/// Throws a std::runtime_error with the call and the status, unless the status is success.
inline void require(OSStatus status, const std::string& call) {
  if (status != errSecSuccess) {
    throw std::runtime_error(call + ": " + std::to_string(status));
  }
}

}  // namespace lumaret::tests
