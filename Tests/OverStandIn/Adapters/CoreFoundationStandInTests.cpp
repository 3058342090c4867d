// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"

namespace lumaret::tests {
namespace {

// Misuse for which Apple's own Core Foundation would only crash, and leaks, which it does not
// count.
class CoreFoundationStandInDeathTest : public OverStandIn {};

TEST_F(CoreFoundationStandInDeathTest, RefusesAReleasedObject) {
  const CFStringRef released = coreFoundationText("text").get();
  EXPECT_DEATH(CFStringGetLength(released), "CFStringGetLength was given an object that was rel");
  EXPECT_DEATH(CFRelease(released), "CFRelease was given an object that was released");
}

TEST_F(CoreFoundationStandInDeathTest, RefusesWhatIsNotAnObjectOfTheType) {
  const int number = 0;
  const auto text = coreFoundationText("text");
  EXPECT_DEATH(CFArrayGetCount(reinterpret_cast<CFArrayRef>(text.get())), "of the wrong type");
  EXPECT_DEATH(CFRelease(nullptr), "CFRelease was given null");
  EXPECT_DEATH(CFRetain(&number), "CFRetain was given not an object");
}

TEST_F(CoreFoundationStandInDeathTest, RefusesAnIndexBeyondTheArray) {
  const auto array = coreFoundationArray<CFStringRef>({});
  EXPECT_DEATH(CFArrayGetValueAtIndex(array.get(), 0), "an index beyond the array");
}

TEST_F(CoreFoundationStandInDeathTest, CountsLiveObjects) {
  const auto text = coreFoundationText("text");
  EXPECT_EQ(standin::liveObjects(), 1U);
}

}  // namespace
}  // namespace lumaret::tests
