// SPDX-License-Identifier: Apache-2.0
#include <Security/Security.h>

#include <algorithm>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"
#include "Tests/OverStandIn/AppleFrameworks/MachineFile.hpp"
#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"
#include "Tests/OverStandIn/AppleFrameworks/UnicodeConversion.hpp"

using namespace standin;

namespace {

AccessListEntry& entryOf(SecACLRef acl, const char* function) {
  const ACLObject& object = as<ACLObject>(acl, function);
  return object.list->entries.at(object.index);
}

CFTypeRef applicationArray(const std::vector<std::string>& paths) {
  std::vector<CFTypeRef> applications;
  for (const std::string& path : paths) {
    applications.push_back(create(ApplicationObject{path}));
  }
  return createArray(applications);
}

// Since macOS 15, the access-list calls crash for another key.
void requireKeychainItem(const KeyObject& key, const char* function) {
  if (!key.key->accessList) {
    refuse(function, "a key that is no keychain item");
  }
}

}  // namespace

extern "C" {

const CFStringRef kSecClass = constantText("kSecClass");
const CFStringRef kSecClassIdentity = constantText("kSecClassIdentity");
const CFStringRef kSecMatchLimit = constantText("kSecMatchLimit");
const CFStringRef kSecMatchLimitAll = constantText("kSecMatchLimitAll");
const CFStringRef kSecReturnRef = constantText("kSecReturnRef");
const CFStringRef kSecOIDX509V1IssuerName = constantText("kSecOIDX509V1IssuerName");
const CFStringRef kSecOIDX509V1SubjectName = constantText("kSecOIDX509V1SubjectName");
const CFStringRef kSecOIDX509V1ValidityNotAfter = constantText("kSecOIDX509V1ValidityNotAfter");
const CFStringRef kSecOIDExtendedKeyUsage = constantText("kSecOIDExtendedKeyUsage");
const CFStringRef kSecOIDKeyUsage = constantText("kSecOIDKeyUsage");
const CFStringRef kSecPropertyKeyLabel = constantText("kSecPropertyKeyLabel");
const CFStringRef kSecPropertyKeyValue = constantText("kSecPropertyKeyValue");

OSStatus SecItemCopyMatching(CFDictionaryRef query, CFTypeRef* result) {
  const Call call(__func__, described(query, __func__));
  if (machine().identities.empty() && call.answersItself()) {
    return errSecItemNotFound;
  }
  return call.leave(result, [] {
    std::vector<CFTypeRef> identities;
    for (const Identity& identity : machine().identities) {
      identities.push_back(create(IdentityObject{identity}));
    }
    return createArray(identities);
  });
}

CFTypeID SecIdentityGetTypeID() { return typeIdentifier<IdentityObject>(); }

OSStatus SecIdentityCopyCertificate(SecIdentityRef identity, SecCertificateRef* certificate) {
  const Identity& stored = as<IdentityObject>(identity, __func__).identity;
  const Call call(__func__, stored.name);
  return call.leave(certificate,
                    [&] { return createAs<SecCertificateRef>(CertificateObject{stored}); });
}

OSStatus SecIdentityCopyPrivateKey(SecIdentityRef identity, SecKeyRef* privateKey) {
  const Identity& stored = as<IdentityObject>(identity, __func__).identity;
  const Call call(__func__, stored.name);
  if (!stored.privateKey && call.answersItself()) {
    return errSecItemNotFound;
  }
  const auto createKey = [&stored] {
    return createAs<SecKeyRef>(KeyObject{stored.name, stored.privateKey});
  };
  return call.leave(privateKey, createKey);
}

// Knows the certificates of the machine's identities.
SecCertificateRef SecCertificateCreateWithData(CFAllocatorRef, CFDataRef data) {
  const UInt8* const first = CFDataGetBytePtr(data);
  const Bytes certificate(first, first + CFDataGetLength(data));
  const auto& identities = machine().identities;
  const auto found = std::ranges::find(identities, certificate, &Identity::certificate);
  const Call call(__func__, found == identities.end() ? "unknown" : found->name);
  return call.result<SecCertificateRef>([&] {
    return found == identities.end() ? nullptr
                                     : createAs<SecCertificateRef>(CertificateObject{*found});
  });
}

CFDataRef SecCertificateCopyData(SecCertificateRef certificate) {
  const Identity& stored = as<CertificateObject>(certificate, __func__).identity;
  const Call call(__func__, stored.name);
  return call.result<CFDataRef>([&] { return createAs<CFDataRef>(Value{stored.certificate}); });
}

// Returns all values of the certificate, whichever are requested.
CFDictionaryRef SecCertificateCopyValues(SecCertificateRef certificate, CFArrayRef keys,
                                         CFErrorRef* error) {
  const Identity& stored = as<CertificateObject>(certificate, __func__).identity;
  const Call call(__func__, stored.name + ", " + described(keys, __func__) + ", " +
                                (error == nullptr ? "null" : "error"));
  return call.result<CFDictionaryRef>([&]() -> CFDictionaryRef {
    return stored.certificateValues ? createAs<CFDictionaryRef>(Value{*stored.certificateValues})
                                    : nullptr;
  });
}

const CFStringRef kSecACLAuthorizationAny = constantText("kSecACLAuthorizationAny");
const CFStringRef kSecACLAuthorizationSign = constantText("kSecACLAuthorizationSign");

// Safe with any key. A key that is not a keychain item counts as null.
OSStatus SecKeychainItemCopyKeychain(SecKeychainItemRef item, SecKeychainRef* keychain) {
  const KeyObject& key = as<KeyObject>(item, __func__);
  const Call call(__func__, key.name);
  if (!key.key->accessList && call.answersItself()) {
    return errSecInvalidItemRef;
  }
  return call.leave(keychain, [] { return createAs<SecKeychainRef>(KeychainObject()); });
}

OSStatus SecKeychainItemCopyAccess(SecKeychainItemRef item, SecAccessRef* access) {
  const KeyObject& key = as<KeyObject>(item, __func__);
  const Call call(__func__, key.name);
  requireKeychainItem(key, __func__);
  return call.leave(access, [&] {
    return createAs<SecAccessRef>(AccessObject{
        key.name, std::make_shared<EditedAccessList>(EditedAccessList{*key.key->accessList})});
  });
}

// Stores entry by entry. Entries that were stored before a failure stay.
OSStatus SecKeychainItemSetAccess(SecKeychainItemRef item, SecAccessRef access) {
  const KeyObject& key = as<KeyObject>(item, __func__);
  EditedAccessList& list = *as<AccessObject>(access, __func__).list;
  const Call call(__func__, key.name + ", " + described(access, __func__));
  requireKeychainItem(key, __func__);
  for (std::size_t stored = 0; !list.edited.empty(); ++stored) {
    if (call.fails() && stored == call.storedEntries()) {
      break;
    }
    const std::size_t index = *list.edited.begin();
    key.key->accessList->at(index) = list.entries.at(index);
    list.edited.erase(index);
  }
  writeMachineFile();
  return call.status();
}

OSStatus SecAccessCopyACLList(SecAccessRef access, CFArrayRef* list) {
  const AccessObject& object = as<AccessObject>(access, __func__);
  const Call call(__func__, object.name);
  return call.leave(list, [&] {
    std::vector<CFTypeRef> entries;
    for (std::size_t index = 0; index < object.list->entries.size(); ++index) {
      entries.push_back(create(ACLObject{object.list, index}));
    }
    return static_cast<CFArrayRef>(createArray(entries));
  });
}

CFTypeID SecACLGetTypeID() { return typeIdentifier<ACLObject>(); }

CFArrayRef SecACLCopyAuthorizations(SecACLRef acl) {
  const Call call(__func__, described(acl, __func__));
  return call.result<CFArrayRef>([&] {
    std::vector<CFTypeRef> tags;
    for (const std::string& tag : entryOf(acl, __func__).authorizations) {
      tags.push_back(create(Value{*fromUTF8(tag)}));
    }
    return static_cast<CFArrayRef>(createArray(tags));
  });
}

// An answer that a test has set is the application list. The rest comes from the entry.
OSStatus SecACLCopyContents(SecACLRef acl, CFArrayRef* applications, CFStringRef* description,
                            SecKeychainPromptSelector* promptSelector) {
  const AccessListEntry& entry = entryOf(acl, __func__);
  const Call call(__func__, described(acl, __func__));
  const OSStatus status = call.leave(applications, [&]() -> CFArrayRef {
    return entry.applications ? static_cast<CFArrayRef>(applicationArray(*entry.applications))
                              : nullptr;
  });
  if (status == errSecSuccess) {
    // An entry for any application keeps a description only if it is not empty.
    const bool isDescribed =
        entry.description && (entry.applications || !entry.description->empty());
    *description = isDescribed ? createAs<CFStringRef>(Value{*entry.description}) : nullptr;
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
  const ACLObject& object = as<ACLObject>(acl, __func__);
  object.list->edited.insert(object.index);
  AccessListEntry& entry = object.list->entries.at(object.index);
  entry.applications.reset();
  if (applications != nullptr) {
    std::vector<std::string> paths;
    for (const CFTypeRef element : elementsOf(applications, __func__)) {
      paths.push_back(as<ApplicationObject>(element, __func__).path);
    }
    entry.applications = std::move(paths);
  }
  entry.description = textOf(description, __func__);
  entry.promptSelector = promptSelector;
  return errSecSuccess;
}

CFTypeID SecTrustedApplicationGetTypeID() { return typeIdentifier<ApplicationObject>(); }

OSStatus SecTrustedApplicationCreateFromPath(const char* path,
                                             SecTrustedApplicationRef* application) {
  const Call call(__func__, path);
  return call.leave(application,
                    [&] { return createAs<SecTrustedApplicationRef>(ApplicationObject{path}); });
}

OSStatus SecTrustedApplicationCopyData(SecTrustedApplicationRef application, CFDataRef* data) {
  const ApplicationObject& object = as<ApplicationObject>(application, __func__);
  const Call call(__func__, object.path);
  return call.leave(data, [&] {  // The path and a zero byte.
    const char* const path = object.path.c_str();
    return createAs<CFDataRef>(Value{Bytes(path, path + object.path.size() + 1)});
  });
}
}
