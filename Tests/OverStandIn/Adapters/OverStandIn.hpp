// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

namespace lumaret::tests {

using standin::calls;
using standin::json;
using standin::machine;

/// A new Mac for a test. The test fails if it does not release every object.
class FreshMac {
 public:
  FreshMac() { standin::startOver(); }
  FreshMac(const FreshMac&) = delete;
  FreshMac& operator=(const FreshMac&) = delete;
  ~FreshMac() { EXPECT_EQ(standin::liveObjects(), 0U); }

  /// From now on, only this answer is given in place of the Mac's own.
  static void answer(const std::string& function, json answer) {
    machine()["answers"] = {{function, json::array({std::move(answer)})}};
  }
};

class OverStandIn : public testing::Test, protected FreshMac {};

}  // namespace lumaret::tests
