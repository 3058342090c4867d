// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Tests/OverStandIn/Adapters/FreshMac.hpp"
#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

namespace lumaret::tests {

class OverStandIn : public testing::Test, protected FreshMac {
 protected:
  /// The calls of the functions with this prefix, in order.
  static std::vector<std::string> calls(std::string_view prefix) {
    std::vector<std::string> found;
    for (const std::string& call : standin::trace()) {
      if (call.starts_with(prefix)) {
        found.push_back(call);
      }
    }
    return found;
  }
};

}  // namespace lumaret::tests
