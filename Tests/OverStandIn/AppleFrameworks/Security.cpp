// SPDX-License-Identifier: Apache-2.0
#include <Security/Security.h>

#include <algorithm>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"

using namespace standin;
using Type = Object::Type;

namespace {

constexpr OSStatus notSimple = -25240;          // errSecACLNotSimple
constexpr OSStatus noSuchApplication = 100002;  // POSIX's ENOENT, as the framework reports it

json& identityOf(const Object& object) { return machine()["identities"].at(object.index); }

/// Since macOS 15, the access-list calls crash for a key that is not a keychain item.
const Object& keychainItem(CFTypeRef key, const char* function = __builtin_FUNCTION()) {
  const Object& object = content(key, Type::key, function);
  require(!identityOf(object)["accessList"].is_null(), "a keychain item", function);
  return object;
}

json& entryOf(const Object& acl) { return acl.list->entries.at(acl.index); }

bool asks(CFDictionaryRef query, CFStringRef key, CFTypeRef wanted) {
  const void* value = CFDictionaryGetValue(query, key);
  return value != nullptr && CFEqual(value, wanted) != 0;
}

/// The framework reads a stored description up to a zero byte, as UTF-8 or else byte by byte.
CFTypeRef createDescription(const std::string& stored) {
  const std::string bytes = stored.c_str();
  const auto* const first = reinterpret_cast<const UInt8*>(bytes.data());
  const CFStringRef text = CFStringCreateWithBytes(
      nullptr, first, static_cast<CFIndex>(bytes.size()), kCFStringEncodingUTF8, 0);
  return text != nullptr ? text : createText(std::u16string(first, first + bytes.size()));
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
const CFStringRef kSecACLAuthorizationAny = constantText("kSecACLAuthorizationAny");
const CFStringRef kSecACLAuthorizationSign = constantText("kSecACLAuthorizationSign");

OSStatus SecItemCopyMatching(CFDictionaryRef query, CFTypeRef* result) {
  require(asks(query, kSecClass, kSecClassIdentity) && asks(query, kSecReturnRef, kCFBooleanTrue) &&
              asks(query, kSecMatchLimit, kSecMatchLimitAll),
          "a query for all identities");
  const Call call("");
  const json& stored = machine()["identities"];
  const auto own = [&] {
    std::vector<CFTypeRef> identities;
    for (const json& identity : stored) {
      identities.push_back(
          create(Object{Type::identity, identity["certificate"], identities.size()}));
    }
    return createArray(identities);
  };
  return call.leave(result, own, stored.empty() ? errSecItemNotFound : errSecSuccess);
}

CFTypeID SecIdentityGetTypeID() { return typeIdentifier(Type::identity); }

OSStatus SecIdentityCopyCertificate(SecIdentityRef identity, SecCertificateRef* certificate) {
  Object object = content(identity, Type::identity);
  const Call call(object.name);
  object.type = Type::certificate;
  return call.leave(certificate, [&] { return create(object); });
}

OSStatus SecIdentityCopyPrivateKey(SecIdentityRef identity, SecKeyRef* privateKey) {
  Object object = content(identity, Type::identity);
  const Call call(object.name);
  object.type = Type::key;
  return call.leave(
      privateKey, [&] { return create(object); },
      identityOf(object).contains("accessList") ? errSecSuccess : errSecItemNotFound);
}

// Knows the certificates of the identities.
SecCertificateRef SecCertificateCreateWithData(CFAllocatorRef, CFDataRef data) {
  const UInt8* const first = CFDataGetBytePtr(data);
  const std::string bytes(first, first + CFDataGetLength(data));
  const Call call(bytes);
  return call.result<SecCertificateRef>([&]() -> CFTypeRef {
    const json& identities = machine()["identities"];
    for (std::size_t index = 0; index < identities.size(); ++index) {
      if (identities[index]["certificate"] == bytes) {
        return create(Object{Type::certificate, bytes, index});
      }
    }
    return nullptr;
  });
}

CFDataRef SecCertificateCopyData(SecCertificateRef certificate) {
  const std::string& bytes = content(certificate, Type::certificate).name;
  const Call call(bytes);
  return call.result<CFDataRef>([&] { return create(json::binary({bytes.begin(), bytes.end()})); });
}

// Returns only the values that are requested.
CFDictionaryRef SecCertificateCopyValues(SecCertificateRef certificate, CFArrayRef keys,
                                         CFErrorRef* /*error*/) {
  const Object& object = content(certificate, Type::certificate);
  const Call call(object.name);
  return call.result<CFDictionaryRef>([&] {
    const json stored = identityOf(object).value("values", json());
    const json wanted = valueOf(keys);
    json requested = stored;
    for (const auto& [key, value] : stored.items()) {
      if (std::find(wanted.begin(), wanted.end(), key) == wanted.end()) {
        requested.erase(key);
      }
    }
    return create(requested);
  });
}

// Safe with any key.
OSStatus SecKeychainItemCopyKeychain(SecKeychainItemRef item, SecKeychainRef* keychain) {
  const Object& object = content(item, Type::key);
  const Call call(object.name);
  const json& identity = identityOf(object);
  return call.leave(
      keychain, [] { return create(Object{Type::keychain}); },
      identity["accessList"].is_null()          ? errSecInvalidItemRef
      : identity.value("isInNoKeychain", false) ? errSecNoSuchKeychain
                                                : errSecSuccess);
}

OSStatus SecKeychainItemCopyAccess(SecKeychainItemRef item, SecAccessRef* access) {
  const Object& key = keychainItem(item);
  const Call call(key.name);
  return call.leave(access, [&] {
    const EditedAccessList list = {.entries = identityOf(key)["accessList"]};
    return create(Object{Type::access, "", 0, std::make_shared<EditedAccessList>(list)});
  });
}

// Stores entry by entry. Entries that were stored before a failure stay.
OSStatus SecKeychainItemSetAccess(SecKeychainItemRef item, SecAccessRef access) {
  const Object& key = keychainItem(item);
  EditedAccessList& list = *content(access, Type::access).list;
  const Call call(key.name);
  for (std::size_t stored = 0; !list.edited.empty(); ++stored) {
    if (call.fails() && stored == call.storedEntries()) {
      break;
    }
    const std::size_t index = *list.edited.begin();
    identityOf(key)["accessList"].at(index) = list.entries.at(index);
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
      entries.push_back(create(Object{Type::acl, "entry " + std::to_string(index), index, edited}));
    }
    return createArray(entries);
  });
}

CFTypeID SecACLGetTypeID() { return typeIdentifier(Type::acl); }

// A tag without a constant reads as any operation.
CFArrayRef SecACLCopyAuthorizations(SecACLRef acl) {
  const Object& object = content(acl, Type::acl);
  const Call call(object.name);
  return call.result<CFArrayRef>([&] {
    json tags = entryOf(object)["authorizations"];
    for (json& tag : tags) {
      if (!tag.get_ref<const std::string&>().starts_with("kSecACLAuthorization")) {
        tag = "kSecACLAuthorizationAny";
      }
    }
    return create(tags);
  });
}

// An answer that a test has set is the application list. The rest comes from the entry.
OSStatus SecACLCopyContents(SecACLRef acl, CFArrayRef* applications, CFStringRef* description,
                            SecKeychainPromptSelector* promptSelector) {
  const Object& object = content(acl, Type::acl);
  const json& entry = entryOf(object);
  const Call call(object.name);
  const bool isOpen = entry["applications"].is_null();
  const auto own = [&]() -> CFTypeRef {
    std::vector<CFTypeRef> list;
    for (const json& path : entry["applications"]) {
      list.push_back(create(Object{Type::application, path}));
    }
    return isOpen ? nullptr : createArray(list);
  };
  const OSStatus status =
      call.leave(applications, own, entry.value("isCustom", false) ? notSimple : errSecSuccess);
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
  const Object& object = content(acl, Type::acl);
  const Call call(object.name);
  if (call.fails()) {
    return call.status();
  }
  object.list->edited.insert(object.index);
  json& entry = entryOf(object);
  entry["applications"] = applications == nullptr ? json() : json::array();
  for (const CFTypeRef application : elementsOf(applications)) {
    entry["applications"].push_back(content(application, Type::application).name);
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
  const json& canonicalPaths = machine()["applications"];
  const auto make = [&] { return create(Object{Type::application, canonicalPaths.at(path)}); };
  const OSStatus status = canonicalPaths.contains(path) ? errSecSuccess : noSuchApplication;
  return call.leave(application, make, status);
}

// The path and a zero byte.
OSStatus SecTrustedApplicationCopyData(SecTrustedApplicationRef application, CFDataRef* data) {
  const std::string& path = content(application, Type::application).name;
  const Call call(path);
  return call.leave(data, [&] {
    const char* const bytes = path.c_str();
    return create(json::binary({bytes, bytes + path.size() + 1}));
  });
}
}
