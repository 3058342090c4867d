// SPDX-License-Identifier: Apache-2.0
#include <Security/Security.h>

#include <algorithm>
#include <iterator>
#include <span>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"

using namespace standin;
using Type = Object::Type;

namespace {

constexpr OSStatus notSimple = -25240;          // errSecACLNotSimple
constexpr OSStatus noSuchApplication = 100002;  // POSIX's ENOENT, as the framework reports it

/// What an object of this type belongs to.
json& identityOf(CFTypeRef object, Type type, const char* function = __builtin_FUNCTION()) {
  return machine()["identities"].at(content(object, type, function).index);
}

std::string nameOf(const json& identity) { return identity["certificate"]; }

/// The identity of a key that is a keychain item. Since macOS 15, the access-list calls crash for
/// another key.
json& keychainItem(CFTypeRef key, const char* function = __builtin_FUNCTION()) {
  json& identity = identityOf(key, Type::key, function);
  if (identity["accessList"].is_null()) {
    refuse("a key that is not a keychain item", function);
  }
  return identity;
}

json& entryOf(SecACLRef acl, const char* function = __builtin_FUNCTION()) {
  const Object& object = content(acl, Type::acl, function);
  return object.list->entries.at(object.index);
}

std::string nameOf(SecACLRef acl, const char* function = __builtin_FUNCTION()) {
  return "entry " + std::to_string(content(acl, Type::acl, function).index);
}

bool asks(CFDictionaryRef query, CFStringRef key, CFTypeRef wanted) {
  const void* value = CFDictionaryGetValue(query, key);
  return value != nullptr && CFEqual(value, wanted) != 0;
}

/// A stored description is read up to a zero byte, as UTF-8 or else byte by byte.
CFTypeRef createDescription(const std::string& stored) {
  const std::string bytes = stored.c_str();
  const CFStringRef text =
      CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                              static_cast<CFIndex>(bytes.size()), kCFStringEncodingUTF8, 0);
  std::u16string latin1;
  std::ranges::copy(std::span(reinterpret_cast<const UInt8*>(bytes.data()), bytes.size()),
                    std::back_inserter(latin1));
  return text != nullptr ? text : createText(latin1);
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
const CFStringRef kSecPropertyKeyLabel = constantText("kSecPropertyKeyLabel");
const CFStringRef kSecPropertyKeyValue = constantText("kSecPropertyKeyValue");
const CFStringRef kSecACLAuthorizationAny = constantText("kSecACLAuthorizationAny");
const CFStringRef kSecACLAuthorizationSign = constantText("kSecACLAuthorizationSign");

OSStatus SecItemCopyMatching(CFDictionaryRef query, CFTypeRef* result) {
  if (!asks(query, kSecClass, kSecClassIdentity)) {
    refuse("a query of another class");
  }
  const Call call("");
  const std::size_t count = machine()["identities"].size();
  if (count == 0 && call.answersItself()) {
    return errSecItemNotFound;
  }
  return call.leave(result, [&]() -> CFTypeRef {
    if (!asks(query, kSecReturnRef, kCFBooleanTrue)) {
      return nullptr;
    }
    if (!asks(query, kSecMatchLimit, kSecMatchLimitAll)) {
      return create(Object{Type::identity});
    }
    std::vector<CFTypeRef> identities;
    for (std::size_t index = 0; index < count; ++index) {
      identities.push_back(create(Object{Type::identity, index}));
    }
    return createArray(identities);
  });
}

CFTypeID SecIdentityGetTypeID() { return typeIdentifier(Type::identity); }

OSStatus SecIdentityCopyCertificate(SecIdentityRef identity, SecCertificateRef* certificate) {
  const Call call(nameOf(identityOf(identity, Type::identity)));
  return call.leave(certificate, [&] {
    return create(Object{Type::certificate, content(identity, Type::identity).index});
  });
}

OSStatus SecIdentityCopyPrivateKey(SecIdentityRef identity, SecKeyRef* privateKey) {
  const json& stored = identityOf(identity, Type::identity);
  const Call call(nameOf(stored));
  if (!stored.contains("accessList") && call.answersItself()) {
    return errSecItemNotFound;
  }
  return call.leave(privateKey, [&] {
    return create(Object{Type::key, content(identity, Type::identity).index});
  });
}

CFDataRef SecCertificateCopyData(SecCertificateRef certificate) {
  const std::string bytes = nameOf(identityOf(certificate, Type::certificate));
  const Call call(bytes);
  return call.result<CFDataRef>([&] { return create(json::binary({bytes.begin(), bytes.end()})); });
}

// Returns only the values that are requested.
CFDictionaryRef SecCertificateCopyValues(SecCertificateRef certificate, CFArrayRef keys,
                                         CFErrorRef* /*error*/) {
  const json& stored = identityOf(certificate, Type::certificate);
  const Call call(nameOf(stored));
  return call.result<CFDictionaryRef>([&]() -> CFTypeRef {
    if (!stored.contains("values")) {
      return nullptr;
    }
    json requested = json::object();
    for (const json& key : valueOf(keys)) {
      if (stored["values"].contains(key)) {
        requested[key.get<std::string>()] = stored["values"][key.get<std::string>()];
      }
    }
    return create(requested);
  });
}

// Safe with any key.
OSStatus SecKeychainItemCopyKeychain(SecKeychainItemRef item, SecKeychainRef* keychain) {
  const json& identity = identityOf(item, Type::key);
  const Call call(nameOf(identity));
  if (identity["accessList"].is_null() && call.answersItself()) {
    return errSecInvalidItemRef;
  }
  if (identity.value("isInNoKeychain", false) && call.answersItself()) {
    return errSecNoSuchKeychain;
  }
  return call.leave(keychain, [] { return create(Object{Type::keychain}); });
}

OSStatus SecKeychainItemCopyAccess(SecKeychainItemRef item, SecAccessRef* access) {
  const json& identity = keychainItem(item);
  const Call call(nameOf(identity));
  return call.leave(access, [&] {
    const EditedAccessList list = {.entries = identity["accessList"]};
    return create(Object{.type = Type::access, .list = std::make_shared<EditedAccessList>(list)});
  });
}

// Stores entry by entry. Entries that were stored before a failure stay.
OSStatus SecKeychainItemSetAccess(SecKeychainItemRef item, SecAccessRef access) {
  json& identity = keychainItem(item);
  EditedAccessList& list = *content(access, Type::access).list;
  const Call call(nameOf(identity));
  for (std::size_t stored = 0; !list.edited.empty(); ++stored) {
    if (call.fails() && stored == call.storedEntries()) {
      break;
    }
    const std::size_t index = *list.edited.begin();
    identity["accessList"].at(index) = list.entries.at(index);
    list.edited.erase(index);
  }
  save();
  return call.status();
}

OSStatus SecAccessCopyACLList(SecAccessRef access, CFArrayRef* list) {
  const auto& edited = content(access, Type::access).list;
  const Call call("");
  return call.leave(list, [&] {
    std::vector<CFTypeRef> entries;
    for (std::size_t index = 0; index < edited->entries.size(); ++index) {
      entries.push_back(create(Object{Type::acl, index, edited}));
    }
    return createArray(entries);
  });
}

CFTypeID SecACLGetTypeID() { return typeIdentifier(Type::acl); }

// A tag without a constant reads as any operation.
CFArrayRef SecACLCopyAuthorizations(SecACLRef acl) {
  const Call call(nameOf(acl));
  return call.result<CFArrayRef>([&] {
    std::vector<CFTypeRef> tags;
    for (const std::string tag : entryOf(acl)["authorizations"]) {
      tags.push_back(tag.starts_with("kSecACLAuthorization") ? create(json(tag))
                                                             : CFRetain(kSecACLAuthorizationAny));
    }
    return createArray(tags);
  });
}

// An answer that a test has set is the application list. The rest comes from the entry.
OSStatus SecACLCopyContents(SecACLRef acl, CFArrayRef* applications, CFStringRef* description,
                            SecKeychainPromptSelector* promptSelector) {
  const json& entry = entryOf(acl);
  const Call call(nameOf(acl));
  if (entry.value("isCustom", false) && call.answersItself()) {
    return notSimple;
  }
  const bool isOpen = entry["applications"].is_null();
  const OSStatus status = call.leave(applications, [&]() -> CFTypeRef {
    std::vector<CFTypeRef> list;
    for (const json& path : entry["applications"]) {
      list.push_back(create(Object{.type = Type::application, .path = path}));
    }
    return isOpen ? nullptr : createArray(list);
  });
  if (status == errSecSuccess) {
    // An entry for any application keeps a description only if it is not empty.
    const std::string stored = entry["description"];
    *description = isOpen && stored.empty() ? nullptr : as<CFStringRef>(createDescription(stored));
    *promptSelector = entry["promptSelector"];
  }
  return status;
}

OSStatus SecACLSetContents(SecACLRef acl, CFArrayRef applications, CFStringRef description,
                           SecKeychainPromptSelector promptSelector) {
  const Call call(nameOf(acl));
  if (call.fails()) {
    return call.status();
  }
  const Object& object = content(acl, Type::acl);
  object.list->edited.insert(object.index);
  json& entry = entryOf(acl);
  entry["applications"] = applications == nullptr ? json() : json::array();
  for (CFIndex index = 0; applications != nullptr && index < CFArrayGetCount(applications);
       ++index) {
    const void* application = CFArrayGetValueAtIndex(applications, index);
    entry["applications"].push_back(content(application, Type::application).path);
  }
  // A description ends at a zero byte. One without a form in UTF-8 becomes empty.
  entry["description"] = textOf(description).value_or("").c_str();
  entry["promptSelector"] = promptSelector;
  return errSecSuccess;
}

CFTypeID SecTrustedApplicationGetTypeID() { return typeIdentifier(Type::application); }

OSStatus SecTrustedApplicationCreateFromPath(const char* path,
                                             SecTrustedApplicationRef* application) {
  const Call call(path);
  const json canonicalPath = machine()["applications"].value(path, json());
  if (canonicalPath.is_null() && call.answersItself()) {
    return noSuchApplication;
  }
  return call.leave(application, [&] {
    return create(Object{.type = Type::application, .path = canonicalPath});
  });
}

OSStatus SecTrustedApplicationCopyData(SecTrustedApplicationRef application, CFDataRef* data) {
  const std::string& path = content(application, Type::application).path;
  const Call call(path);
  return call.leave(data, [&] {  // The path and a zero byte.
    const char* const bytes = path.c_str();
    return create(json::binary({bytes, bytes + path.size() + 1}));
  });
}
}
