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
  EXPECT_DEATH(SecIdentityCopyPrivateKey(
                   reinterpret_cast<SecIdentityRef>(const_cast<__CFString*>(text.get())), nullptr),
               "of the wrong type");
}

/// The key of the first identity of the machine, as a keychain item.
CoreFoundationReference<SecKeychainItemRef> firstKey() {
  const standin::Identity& first = standin::machine().identities.at(0);
  return CoreFoundationReference<SecKeychainItemRef>::adopt(
      standin::createAs<SecKeychainItemRef>(standin::KeyObject{first.name, first.privateKey}));
}

TEST_F(StandInDeathTest, RefusesTheAccessListOfAKeyThatIsNotAKeychainItem) {
  machine().identities = {identity("card", {})};
  machine().identities[0].privateKey->accessList.reset();
  const auto key = firstKey();
  SecAccessRef access = nullptr;
  EXPECT_DEATH(SecKeychainItemCopyAccess(key.get(), &access), "a key that is no keychain item");
}

TEST_F(StandIn, UpToMacOS14TheAccessListOfAnotherKeyIsAFailure) {
  machine().identities = {identity("card", {})};
  machine().identities[0].privateKey->accessList.reset();
  machine().failsForOtherKeys = true;
  SecAccessRef access = nullptr;
  EXPECT_EQ(SecKeychainItemCopyAccess(firstKey().get(), &access), errSecNoAccessForItem);
}

TEST_F(StandIn, AnApplicationIsKnownByItsPathAndAZeroByte) {
  CoreFoundationReference<SecTrustedApplicationRef> application;
  ASSERT_EQ(SecTrustedApplicationCreateFromPath("/Mail", application.receive()), errSecSuccess);
  CoreFoundationReference<CFDataRef> data;
  ASSERT_EQ(SecTrustedApplicationCopyData(application.get(), data.receive()), errSecSuccess);
  EXPECT_EQ(bytes(data.get()), (Bytes{'/', 'M', 'a', 'i', 'l', 0}));
}

TEST_F(StandIn, AMissingApplicationIsAFailureOfTheFileSystem) {
  machine().missingApplications = {"/Mail"};
  CoreFoundationReference<SecTrustedApplicationRef> application;
  EXPECT_EQ(SecTrustedApplicationCreateFromPath("/Mail", application.receive()), 100002);
}

TEST_F(StandIn, EditsOfAnAccessObjectReachTheKeyOnlyWhenStored) {
  machine().identities = {identity("ana", {signingEntry({"/Mail"})})};
  const auto& key = machine().identities[0].privateKey;
  const auto item = CoreFoundationReference<SecKeychainItemRef>::adopt(
      standin::createAs<SecKeychainItemRef>(standin::KeyObject{"ana", key}));
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

TEST_F(StandIn, AnAccessListIsStoredEntryByEntry) {
  machine().identities = {identity("ana", {signingEntry({}), signingEntry({}), signingEntry({})})};
  machine().answer("SecKeychainItemSetAccess", standin::Answer::status(-25293).afterEntries(2));
  const auto key = firstKey();
  CoreFoundationReference<SecAccessRef> access;
  ASSERT_EQ(SecKeychainItemCopyAccess(key.get(), access.receive()), errSecSuccess);
  CoreFoundationReference<CFArrayRef> list;
  ASSERT_EQ(SecAccessCopyACLList(access.get(), list.receive()), errSecSuccess);
  for (const CFTypeRef acl : elements(list.get())) {
    ASSERT_EQ(SecACLSetContents(objectAs<SecACLRef>(acl, SecACLGetTypeID()), nullptr,
                                coreFoundationText("new").get(), 0),
              errSecSuccess);
  }
  EXPECT_EQ(SecKeychainItemSetAccess(key.get(), access.get()), -25293);
  const auto& stored = *machine().identities[0].privateKey->accessList;
  EXPECT_EQ(stored[0].description, u"new");
  EXPECT_EQ(stored[1].description, u"new");
  EXPECT_EQ(stored[2], signingEntry({}));
}

TEST_F(StandIn, AnEntryOpenToAnyApplicationHasNoEmptyDescription) {
  machine().identities = {identity("ana", {{{"kSecACLAuthorizationAny"}, std::nullopt, u"", 0}})};
  CoreFoundationReference<SecAccessRef> access;
  ASSERT_EQ(SecKeychainItemCopyAccess(firstKey().get(), access.receive()), errSecSuccess);
  CoreFoundationReference<CFArrayRef> list;
  ASSERT_EQ(SecAccessCopyACLList(access.get(), list.receive()), errSecSuccess);
  CoreFoundationReference<CFArrayRef> applications;
  CoreFoundationReference<CFStringRef> description;
  SecKeychainPromptSelector selector = 0;
  ASSERT_EQ(SecACLCopyContents(objectAs<SecACLRef>(elements(list.get()).at(0), SecACLGetTypeID()),
                               applications.receive(), description.receive(), &selector),
            errSecSuccess);
  EXPECT_FALSE(applications);
  EXPECT_FALSE(description);
}

}  // namespace
}  // namespace lumaret::tests
