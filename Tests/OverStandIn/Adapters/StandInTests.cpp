// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>
#include <gtest/gtest.h>

#include "LumaretMacHelper/macOS/CoreFoundationReference.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"

namespace lumaret::tests {
namespace {

class StandIn : public OverStandIn {};
class StandInDeathTest : public OverStandIn {};

TEST_F(StandInDeathTest, RefusesAnObjectThatWasReleased) {
  const CFStringRef released = coreFoundationText("text").get();
  EXPECT_DEATH(CFStringGetLength(released), "CFStringGetLength was given an object that was rel");
}

TEST_F(StandInDeathTest, RefusesOneReleaseTooMany) {
  const auto text = coreFoundationText("text");
  EXPECT_DEATH(
      {
        CFRelease(text.get());
        CFRelease(text.get());
      },
      "CFRelease was given an object that was released");
}

TEST_F(StandInDeathTest, RefusesAnObjectOfTheWrongType) {
  const auto text = coreFoundationText("text");
  EXPECT_DEATH(CFArrayGetCount(reinterpret_cast<CFArrayRef>(text.get())), "of the wrong type");
  EXPECT_DEATH(SecIdentityCopyPrivateKey(
                   reinterpret_cast<SecIdentityRef>(const_cast<__CFString*>(text.get())), nullptr),
               "of the wrong type");
}

TEST_F(StandInDeathTest, RefusesNullAndAnythingThatIsNotAnObject) {
  const int number = 0;
  EXPECT_DEATH(CFRelease(nullptr), "CFRelease was given null");
  EXPECT_DEATH(CFRetain(&number), "CFRetain was given not an object");
}

TEST_F(StandInDeathTest, RefusesAnIndexBeyondTheArray) {
  const auto array = coreFoundationArray<CFStringRef>({});
  EXPECT_DEATH(CFArrayGetValueAtIndex(array.get(), 0), "an index beyond the array");
}

TEST_F(StandIn, EditsOfAnAccessObjectReachTheKeyOnlyWhenStored) {
  machine().identities = {identity("ana", {signingEntry({"/Mail"})})};
  const auto& key = machine().identities[0].privateKey;
  const auto item = CoreFoundationReference<SecKeychainItemRef>::adopt(
      standin::createAs<SecKeychainItemRef>(standin::Content(standin::KeyObject{"ana", key})));
  CoreFoundationReference<SecAccessRef> access;
  ASSERT_EQ(SecKeychainItemCopyAccess(item.get(), access.receive()), errSecSuccess);
  CoreFoundationReference<CFArrayRef> list;
  ASSERT_EQ(SecAccessCopyACLList(access.get(), list.receive()), errSecSuccess);
  const auto acl = objectAs<SecACLRef>(elements(list.get()).at(0), SecACLGetTypeID());
  ASSERT_EQ(SecACLSetContents(acl, nullptr, coreFoundationText("new").get(), 1), errSecSuccess);

  EXPECT_EQ(key->accessList, standin::AccessList{signingEntry({"/Mail"})});
  ASSERT_EQ(SecKeychainItemSetAccess(item.get(), access.get()), errSecSuccess);
  EXPECT_EQ(key->accessList, (standin::AccessList{{{"kSecACLAuthorizationSign"}, {}, u"new", 1}}));
}

}  // namespace
}  // namespace lumaret::tests
