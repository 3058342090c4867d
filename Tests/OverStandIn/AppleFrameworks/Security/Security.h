// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the adapters use of the Security framework. Declarations.cpp compares it with Apple's own
// header.

#include <CoreFoundation/CoreFoundation.h>

extern "C" {

using SecAccessRef = struct __SecAccess*;
using SecACLRef = struct __SecACL*;
using SecCertificateRef = struct __SecCertificate*;
using SecIdentityRef = struct __SecIdentity*;
using SecKeychainItemRef = struct __SecKeychainItem*;
using SecKeychainRef = struct __SecKeychain*;
using SecKeyRef = struct __SecKey*;
using SecTrustedApplicationRef = struct __SecTrustedApplication*;
using SecKeychainPromptSelector = std::uint16_t;

#ifndef __APPLE__
enum : OSStatus {
  errSecSuccess = 0,
  errSecInternalComponent = -2070,
  errSecNoSuchKeychain = -25294,
  errSecItemNotFound = -25300,
  errSecInvalidItemRef = -25304,
  errSecNoSuchClass = -25306,
};
enum SecKeyUsage : std::uint32_t { kSecKeyUsageDigitalSignature = 1 };
#endif

extern const CFStringRef kSecClass;
extern const CFStringRef kSecClassIdentity;
extern const CFStringRef kSecMatchLimit;
extern const CFStringRef kSecMatchLimitAll;
extern const CFStringRef kSecReturnRef;

OSStatus SecItemCopyMatching(CFDictionaryRef query, CFTypeRef* result);
CFTypeID SecIdentityGetTypeID();
OSStatus SecIdentityCopyCertificate(SecIdentityRef identity, SecCertificateRef* certificate);
OSStatus SecIdentityCopyPrivateKey(SecIdentityRef identity, SecKeyRef* privateKey);

extern const CFStringRef kSecOIDX509V1IssuerName;
extern const CFStringRef kSecOIDX509V1SubjectName;
extern const CFStringRef kSecOIDX509V1ValidityNotAfter;
extern const CFStringRef kSecOIDExtendedKeyUsage;
extern const CFStringRef kSecOIDKeyUsage;
extern const CFStringRef kSecPropertyKeyLabel;
extern const CFStringRef kSecPropertyKeyValue;

SecCertificateRef SecCertificateCreateWithData(CFAllocatorRef allocator, CFDataRef data);
CFDataRef SecCertificateCopyData(SecCertificateRef certificate);
CFDictionaryRef SecCertificateCopyValues(SecCertificateRef certificate, CFArrayRef keys,
                                         CFErrorRef* error);

extern const CFStringRef kSecACLAuthorizationAny;
extern const CFStringRef kSecACLAuthorizationSign;

OSStatus SecKeychainItemCopyKeychain(SecKeychainItemRef item, SecKeychainRef* keychain);
OSStatus SecKeychainItemCopyAccess(SecKeychainItemRef item, SecAccessRef* access);
OSStatus SecKeychainItemSetAccess(SecKeychainItemRef item, SecAccessRef access);
OSStatus SecAccessCopyACLList(SecAccessRef access, CFArrayRef* list);

CFTypeID SecACLGetTypeID();
CFArrayRef SecACLCopyAuthorizations(SecACLRef acl);
OSStatus SecACLCopyContents(SecACLRef acl, CFArrayRef* applications, CFStringRef* description,
                            SecKeychainPromptSelector* promptSelector);
OSStatus SecACLSetContents(SecACLRef acl, CFArrayRef applications, CFStringRef description,
                           SecKeychainPromptSelector promptSelector);

CFTypeID SecTrustedApplicationGetTypeID();
OSStatus SecTrustedApplicationCreateFromPath(const char* path,
                                             SecTrustedApplicationRef* application);
OSStatus SecTrustedApplicationCopyData(SecTrustedApplicationRef application, CFDataRef* data);
}
