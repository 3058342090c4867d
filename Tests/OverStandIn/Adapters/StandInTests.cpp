// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>
#include <gtest/gtest.h>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"

namespace lumaret::tests {
namespace {

class StandInDeathTest : public OverStandIn {
 protected:
  void SetUp() override {
    machine().identities = {identity("ana", {signingEntry({}), signingEntry({})})};
  }

  /// The key of the only identity, as a keychain item.
  static CoreFoundationReference<SecKeychainItemRef> key() {
    const standin::Identity& ana = machine().identities.at(0);
    return CoreFoundationReference<SecKeychainItemRef>::adopt(
        standin::createAs<SecKeychainItemRef>(standin::KeyObject{ana.name, ana.privateKey}));
  }
};

TEST_F(StandInDeathTest, RefusesAnObjectOfTheWrongType) {
  SecKeyRef stored = nullptr;
  EXPECT_DEATH(SecIdentityCopyPrivateKey(reinterpret_cast<SecIdentityRef>(key().get()), &stored),
               "SecIdentityCopyPrivateKey was given an object of the wrong type");
}

TEST_F(StandInDeathTest, RefusesTheAccessListOfAKeyThatIsNoKeychainItem) {
  machine().identities[0].privateKey->accessList.reset();
  SecAccessRef access = nullptr;
  EXPECT_DEATH(SecKeychainItemCopyAccess(key().get(), &access), "a key that is no keychain item");
}

TEST_F(StandInDeathTest, StoresEditsEntryByEntry) {
  const auto& stored = *machine().identities[0].privateKey->accessList;
  CoreFoundationReference<SecAccessRef> access;
  ASSERT_EQ(SecKeychainItemCopyAccess(key().get(), access.receive()), errSecSuccess);
  CoreFoundationReference<CFArrayRef> list;
  ASSERT_EQ(SecAccessCopyACLList(access.get(), list.receive()), errSecSuccess);
  for (const CFTypeRef acl : elements(list.get())) {
    ASSERT_EQ(SecACLSetContents(objectAs<SecACLRef>(acl, SecACLGetTypeID()), nullptr,
                                coreFoundationText("new").get(), 1),
              errSecSuccess);
  }
  const standin::AccessListEntry edited = {{"kSecACLAuthorizationSign"}, std::nullopt, u"new", 1};
  EXPECT_EQ(stored, (standin::AccessList{signingEntry({}), signingEntry({})}));

  machine().answer("SecKeychainItemSetAccess", standin::Answer::status(-25293).afterEntries(1));
  EXPECT_EQ(SecKeychainItemSetAccess(key().get(), access.get()), -25293);
  EXPECT_EQ(stored, (standin::AccessList{edited, signingEntry({})}));
  machine().answers.clear();
  EXPECT_EQ(SecKeychainItemSetAccess(key().get(), access.get()), errSecSuccess);
  EXPECT_EQ(stored, (standin::AccessList{edited, edited}));
}

}  // namespace
}  // namespace lumaret::tests
