// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

namespace lumaret::tests {

using standin::calls;

/// A new Mac for a test. The test fails if it does not release every object.
class FreshMac {
 public:
  FreshMac() { standin::startOver(); }
  FreshMac(const FreshMac&) = delete;
  FreshMac& operator=(const FreshMac&) = delete;
  ~FreshMac() { EXPECT_EQ(standin::liveObjects(), 0U); }

 protected:
  static standin::Machine& machine() { return standin::machine(); }
};

class OverStandIn : public testing::Test, protected FreshMac {};

}  // namespace lumaret::tests
