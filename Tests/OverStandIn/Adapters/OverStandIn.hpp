// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include "Tests/OverStandIn/Adapters/FreshMac.hpp"
#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

namespace lumaret::tests {

using standin::calls;

class OverStandIn : public testing::Test, protected FreshMac {};

}  // namespace lumaret::tests
