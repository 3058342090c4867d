// SPDX-License-Identifier: Apache-2.0
// What keeps the stand-in honest: it refuses what would crash a Mac.
#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>
#include <gtest/gtest.h>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"

namespace lumaret::tests {
namespace {

using standin::Object;

template <typename Reference>
auto create(Object object) {
  return CoreFoundationReference<Reference>::adopt(
      standin::as<Reference>(standin::create(std::move(object))));
}

class StandInDeathTest : public OverStandIn {};

TEST_F(StandInDeathTest, RefusesWrongObjects) {
  machine()["identities"] = json::array({identity("ana", nullptr)});
  const auto key = create<SecKeychainItemRef>(Object{Object::Type::key});
  EXPECT_DEATH(SecIdentityCopyCertificate(standin::as<SecIdentityRef>(key.get()), nullptr),
               "SecIdentityCopyCertificate requires an object of the right type");
  SecAccessRef access = nullptr;
  EXPECT_DEATH(SecKeychainItemCopyAccess(key.get(), &access), "a keychain item");
}

TEST_F(StandInDeathTest, StoresADescriptionWithoutUTF8AsEmpty) {
  const auto list = std::make_shared<standin::EditedAccessList>(
      standin::EditedAccessList{json::array({signingEntry({})})});
  const auto acl = create<SecACLRef>(Object{.type = Object::Type::acl, .list = list});
  const auto text = CoreFoundationReference<CFStringRef>::adopt(
      standin::createText(std::u16string(1, char16_t{0xd800})));
  EXPECT_EQ(SecACLSetContents(acl.get(), nullptr, text.get(), 0), errSecSuccess);
  EXPECT_EQ(list->entries[0]["description"], "");
}

// Apple's own Core Foundation would only crash, and does not count objects.
class CoreFoundationStandInDeathTest : public OverStandIn {
 protected:
  void SetUp() override {
    if (const auto text = coreFoundationText("text"); standin::liveObjects() == 0) {
      GTEST_SKIP() << "This is Apple's own Core Foundation.";
    }
  }
};

TEST_F(CoreFoundationStandInDeathTest, RefusesWrongObjects) {
  const int number = 0;
  const auto text = coreFoundationText("text");
  EXPECT_EQ(standin::liveObjects(), 1U);
  const CFStringRef released = coreFoundationText("text").get();
  EXPECT_DEATH(CFStringGetLength(released),
               "CFStringGetLength requires an object that was not released");
  EXPECT_DEATH(CFRelease(released), "CFRelease requires an object that was not released");
  EXPECT_DEATH(CFArrayGetCount(standin::as<CFArrayRef>(text.get())), "of the right type");
  EXPECT_DEATH(CFRelease(nullptr), "CFRelease requires an object");
  EXPECT_DEATH(CFRetain(&number), "CFRetain requires an object");
  EXPECT_DEATH(CFArrayGetValueAtIndex(coreFoundationArray<CFStringRef>({}).get(), 0), "an index");
}

}  // namespace
}  // namespace lumaret::tests
