// SPDX-License-Identifier: Apache-2.0
#include <Security/Security.h>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"
#include "Tests/OverStandIn/AppleFrameworks/MachineFile.hpp"
#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"
#include "Tests/OverStandIn/AppleFrameworks/UnicodeConversion.hpp"

using namespace standin;

namespace {

AccessListEntry& entryOf(SecACLRef acl, const char* function) {
  const ACLObject& object = as<ACLObject>(acl, function);
  return object.list->at(object.index);
}

CFTypeRef applicationArray(const std::vector<std::string>& paths) {
  ArrayObject array;
  for (const std::string& path : paths) {
    array.elements.push_back(create(ApplicationObject{path}));
  }
  return create(std::move(array));
}

Bytes dataOf(const std::string& application) {
  const auto found = machine().applicationData.find(application);
  return found != machine().applicationData.end() ? found->second
                                                  : Bytes(application.begin(), application.end());
}

}  // namespace

extern "C" {

const CFStringRef kSecACLAuthorizationAny = constantText("kSecACLAuthorizationAny");
const CFStringRef kSecACLAuthorizationSign = constantText("kSecACLAuthorizationSign");

OSStatus SecKeychainItemCopyAccess(SecKeychainItemRef item, SecAccessRef* access) {
  const KeyObject& key = as<KeyObject>(item, __func__);
  const Call call(__func__, key.name);
  if (!key.key->accessList && call.answersItself()) {
    return errSecNoSuchClass;
  }
  return call.leave(access, [&] {
    return createAs<SecAccessRef>(AccessObject{
        key.name, std::make_shared<AccessList>(key.key->accessList.value_or(AccessList()))});
  });
}

OSStatus SecKeychainItemSetAccess(SecKeychainItemRef item, SecAccessRef access) {
  const KeyObject& key = as<KeyObject>(item, __func__);
  const AccessObject& edited = as<AccessObject>(access, __func__);
  const Call call(__func__, key.name + ", " + edited.name);
  if (!call.fails()) {
    key.key->accessList = *edited.list;
    writeMachineFile();
  }
  return call.status();
}

OSStatus SecAccessCopyACLList(SecAccessRef access, CFArrayRef* list) {
  const AccessObject& object = as<AccessObject>(access, __func__);
  const Call call(__func__, object.name);
  return call.leave(list, [&] {
    ArrayObject array;
    for (std::size_t index = 0; index < object.list->size(); ++index) {
      array.elements.push_back(create(ACLObject{object.list, index}));
    }
    return createAs<CFArrayRef>(std::move(array));
  });
}

CFTypeID SecACLGetTypeID() {
  const Call call(__func__, "");
  return typeIdentifier<ACLObject>();
}

CFArrayRef SecACLCopyAuthorizations(SecACLRef acl) {
  const Call call(__func__, described(acl, __func__));
  return call.result<CFArrayRef>([&] {
    ArrayObject array;
    for (const std::string& tag : entryOf(acl, __func__).authorizations) {
      array.elements.push_back(create(TextObject{*fromUTF8(tag)}));
    }
    return createAs<CFArrayRef>(std::move(array));
  });
}

// A scripted answer is for the application list, and its second object the description; the rest is
// the entry's own.
OSStatus SecACLCopyContents(SecACLRef acl, CFArrayRef* applications, CFStringRef* description,
                            SecKeychainPromptSelector* promptSelector) {
  const AccessListEntry& entry = entryOf(acl, __func__);
  const Call call(__func__, described(acl, __func__));
  const OSStatus status = call.leave(applications, [&]() -> CFArrayRef {
    return entry.applications ? static_cast<CFArrayRef>(applicationArray(*entry.applications))
                              : nullptr;
  });
  if (status == errSecSuccess) {
    *description = entry.description && !call.leavesOutSecond()
                       ? createAs<CFStringRef>(TextObject{*entry.description})
                       : nullptr;
    *promptSelector = entry.promptSelector;
  }
  return status;
}

OSStatus SecACLSetContents(SecACLRef acl, CFArrayRef applications, CFStringRef description,
                           SecKeychainPromptSelector promptSelector) {
  const Call call(__func__, described(acl, __func__) + ", " + described(applications, __func__) +
                                ", " + described(description, __func__) + ", " +
                                std::to_string(promptSelector));
  if (call.fails()) {
    return call.status();
  }
  AccessListEntry& entry = entryOf(acl, __func__);
  entry.applications.reset();
  if (applications != nullptr) {
    entry.applications.emplace();
    for (const CFTypeRef element : as<ArrayObject>(applications, __func__).elements) {
      entry.applications->push_back(as<ApplicationObject>(element, __func__).path);
    }
  }
  entry.description = as<TextObject>(description, __func__).text;
  entry.promptSelector = promptSelector;
  return errSecSuccess;
}

CFTypeID SecTrustedApplicationGetTypeID() {
  const Call call(__func__, "");
  return typeIdentifier<ApplicationObject>();
}

OSStatus SecTrustedApplicationCreateFromPath(const char* path,
                                             SecTrustedApplicationRef* application) {
  const Call call(__func__, path);
  return call.leave(application,
                    [&] { return createAs<SecTrustedApplicationRef>(ApplicationObject{path}); });
}

OSStatus SecTrustedApplicationCopyData(SecTrustedApplicationRef application, CFDataRef* data) {
  const ApplicationObject& object = as<ApplicationObject>(application, __func__);
  const Call call(__func__, object.path);
  return call.leave(data, [&] { return createAs<CFDataRef>(DataObject{dataOf(object.path)}); });
}
}
