// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include "LumaretMacHelper/macOS/CoreFoundationReference.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"

namespace lumaret::tests {
namespace {

using TextReference = CoreFoundationReference<CFStringRef>;

class CoreFoundationReferenceTest : public OverStandIn {};

TEST_F(CoreFoundationReferenceTest, AnAdoptedObjectIsReleasedOnce) {
  static_cast<void>(coreFoundationText("text"));
  EXPECT_EQ(standin::liveObjects(), 0U);
}

TEST_F(CoreFoundationReferenceTest, ARetainedObjectOutlivesItsFirstOwner) {
  TextReference second;
  {
    const auto first = coreFoundationText("text");
    second = TextReference::retain(first.get());
  }
  EXPECT_EQ(utf8Text(second.get()), "text");
}

TEST_F(CoreFoundationReferenceTest, ACopyOutlivesTheOriginalAndAMoveLeavesNothing) {
  auto original = coreFoundationText("text");
  TextReference copy = original;
  TextReference moved = std::move(original);
  EXPECT_FALSE(original);  // NOLINT(bugprone-use-after-move): A moved-from reference is null.
  moved = TextReference();
  EXPECT_EQ(utf8Text(copy.get()), "text");
  copy = *&copy;
  EXPECT_EQ(utf8Text(copy.get()), "text");
}

TEST_F(CoreFoundationReferenceTest, ReceivingReleasesWhatWasHeld) {
  auto text = coreFoundationText("first");
  *text.receive() = standin::createAs<CFStringRef>(standin::Value{standin::Text(u"second")});
  EXPECT_EQ(standin::liveObjects(), 1U);
  EXPECT_EQ(utf8Text(text.get()), "second");
}

TEST_F(CoreFoundationReferenceTest, NullCanBeAdoptedRetainedAndCopied) {
  const auto adopted = TextReference::adopt(nullptr);
  const TextReference copy = TextReference::retain(adopted.get());
  EXPECT_FALSE(copy);
}

TEST_F(CoreFoundationReferenceTest, AnArrayOwnsItsElements) {
  auto text = coreFoundationText("text");
  const auto array = coreFoundationArray<CFStringRef>({text});
  text = TextReference();
  EXPECT_EQ(utf8Text(objectAs<CFStringRef>(elements(array.get()).at(0), CFStringGetTypeID())),
            "text");
}

}  // namespace
}  // namespace lumaret::tests
