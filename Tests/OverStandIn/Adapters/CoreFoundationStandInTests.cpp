// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>
#include <gtest/gtest.h>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"

namespace lumaret::tests {
namespace {

// Misuse for which Apple's own Core Foundation would only crash.
class CoreFoundationStandInDeathTest : public OverStandIn {};

TEST_F(CoreFoundationStandInDeathTest, RefusesAnObjectThatWasReleased) {
  const CFStringRef released = coreFoundationText("text").get();
  EXPECT_DEATH(CFStringGetLength(released), "CFStringGetLength was given an object that was rel");
}

TEST_F(CoreFoundationStandInDeathTest, RefusesAnObjectOfTheWrongType) {
  const auto text = coreFoundationText("text");
  EXPECT_DEATH(CFArrayGetCount(reinterpret_cast<CFArrayRef>(text.get())), "of the wrong type");
}

TEST_F(CoreFoundationStandInDeathTest, RefusesNullAndAnythingThatIsNotAnObject) {
  const int number = 0;
  EXPECT_DEATH(CFRelease(nullptr), "CFRelease was given null");
  EXPECT_DEATH(CFRetain(&number), "CFRetain was given not an object");
}

TEST_F(CoreFoundationStandInDeathTest, RefusesAnIndexBeyondTheArray) {
  const auto array = coreFoundationArray<CFStringRef>({});
  EXPECT_DEATH(CFArrayGetValueAtIndex(array.get(), 0), "an index beyond the array");
}

}  // namespace
}  // namespace lumaret::tests
