// SPDX-License-Identifier: Apache-2.0
// Compiled with the headers of the stand-in in the tests, and with Apple's own headers in the
// executable for macOS. What the adapters use has the same types in both.

#include <CommonCrypto/CommonDigest.h>
#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>

#include <type_traits>

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace {

template <typename Declared, typename Expected>
constexpr bool isDeclaredAs = std::is_same_v<Declared, Expected>;

// Types

static_assert(isDeclaredAs<Boolean, unsigned char>);
static_assert(isDeclaredAs<UInt8, unsigned char>);
static_assert(isDeclaredAs<OSStatus, int>);
static_assert(isDeclaredAs<CFTypeID, unsigned long>);
static_assert(isDeclaredAs<CFIndex, long>);
static_assert(isDeclaredAs<CFAbsoluteTime, double>);
static_assert(isDeclaredAs<CFTypeRef, const void*>);
static_assert(isDeclaredAs<CFPropertyListRef, const void*>);
static_assert(isDeclaredAs<CFAllocatorRef, const struct __CFAllocator*>);
static_assert(isDeclaredAs<CFArrayRef, const struct __CFArray*>);
static_assert(isDeclaredAs<CFBooleanRef, const struct __CFBoolean*>);
static_assert(isDeclaredAs<CFDataRef, const struct __CFData*>);
static_assert(isDeclaredAs<CFDateRef, const struct __CFDate*>);
static_assert(isDeclaredAs<CFDictionaryRef, const struct __CFDictionary*>);
static_assert(isDeclaredAs<CFErrorRef, struct __CFError*>);
static_assert(isDeclaredAs<CFLocaleRef, const struct __CFLocale*>);
static_assert(isDeclaredAs<CFNumberRef, const struct __CFNumber*>);
static_assert(isDeclaredAs<CFStringRef, const struct __CFString*>);
static_assert(isDeclaredAs<CFMutableStringRef, struct __CFString*>);
static_assert(isDeclaredAs<CFStringEncoding, unsigned int>);
static_assert(isDeclaredAs<CFStringCompareFlags, unsigned long>);
static_assert(isDeclaredAs<decltype(CFRange::location), CFIndex>);
static_assert(isDeclaredAs<decltype(CFRange::length), CFIndex>);
static_assert(isDeclaredAs<std::underlying_type_t<CFComparisonResult>, CFIndex>);
static_assert(isDeclaredAs<std::underlying_type_t<CFNumberType>, CFIndex>);
static_assert(isDeclaredAs<std::underlying_type_t<CFStringNormalizationForm>, CFIndex>);
static_assert(isDeclaredAs<SecAccessRef, struct __SecAccess*>);
static_assert(isDeclaredAs<SecACLRef, struct __SecACL*>);
static_assert(isDeclaredAs<SecCertificateRef, struct __SecCertificate*>);
static_assert(isDeclaredAs<SecIdentityRef, struct __SecIdentity*>);
static_assert(isDeclaredAs<SecKeychainItemRef, struct __SecKeychainItem*>);
static_assert(isDeclaredAs<SecKeychainRef, struct __SecKeychain*>);
static_assert(isDeclaredAs<SecKeyRef, struct __SecKey*>);
static_assert(isDeclaredAs<SecTrustedApplicationRef, struct __SecTrustedApplication*>);
static_assert(isDeclaredAs<SecKeychainPromptSelector, unsigned short>);
static_assert(isDeclaredAs<CC_LONG, unsigned int>);

// Numbers

static_assert(kCFCompareLessThan == -1 && kCFCompareEqualTo == 0 && kCFCompareGreaterThan == 1);
static_assert(kCFNumberDoubleType == 13);
static_assert(kCFStringEncodingUTF8 == 0x08000100);
static_assert(kCFCompareCaseInsensitive == 1 && kCFCompareLocalized == 32);
static_assert(kCFStringNormalizationFormC == 2);
static_assert(errSecSuccess == 0);
static_assert(errSecInternalComponent == -2070);
static_assert(errSecNoAccessForItem == -25243);
static_assert(errSecNoSuchKeychain == -25294);
static_assert(errSecItemNotFound == -25300);
static_assert(errSecInvalidItemRef == -25304);
static_assert(errSecNoSuchClass == -25306);
static_assert(CC_SHA256_DIGEST_LENGTH == 32);

// Constants

static_assert(isDeclaredAs<decltype(kCFAllocatorDefault), const CFAllocatorRef>);
static_assert(isDeclaredAs<decltype(kCFBooleanTrue), const CFBooleanRef>);
static_assert(isDeclaredAs<decltype(kCFTypeArrayCallBacks), const CFArrayCallBacks>);
static_assert(
    isDeclaredAs<decltype(kCFTypeDictionaryKeyCallBacks), const CFDictionaryKeyCallBacks>);
static_assert(
    isDeclaredAs<decltype(kCFTypeDictionaryValueCallBacks), const CFDictionaryValueCallBacks>);
static_assert(isDeclaredAs<decltype(kCFPreferencesAnyHost), const CFStringRef>);
static_assert(isDeclaredAs<decltype(kCFPreferencesCurrentUser), const CFStringRef>);
static_assert(isDeclaredAs<decltype(kSecClass), const CFStringRef>);
static_assert(isDeclaredAs<decltype(kSecClassIdentity), const CFStringRef>);
static_assert(isDeclaredAs<decltype(kSecMatchLimit), const CFStringRef>);
static_assert(isDeclaredAs<decltype(kSecMatchLimitAll), const CFStringRef>);
static_assert(isDeclaredAs<decltype(kSecReturnRef), const CFStringRef>);
static_assert(isDeclaredAs<decltype(kSecOIDX509V1IssuerName), const CFStringRef>);
static_assert(isDeclaredAs<decltype(kSecOIDX509V1SubjectName), const CFStringRef>);
static_assert(isDeclaredAs<decltype(kSecOIDX509V1ValidityNotAfter), const CFStringRef>);
static_assert(isDeclaredAs<decltype(kSecPropertyKeyLabel), const CFStringRef>);
static_assert(isDeclaredAs<decltype(kSecPropertyKeyValue), const CFStringRef>);
static_assert(isDeclaredAs<decltype(kSecACLAuthorizationAny), const CFStringRef>);
static_assert(isDeclaredAs<decltype(kSecACLAuthorizationSign), const CFStringRef>);

// Functions

static_assert(isDeclaredAs<decltype(CFGetTypeID), CFTypeID(CFTypeRef)>);
static_assert(isDeclaredAs<decltype(CFRetain), CFTypeRef(CFTypeRef)>);
static_assert(isDeclaredAs<decltype(CFRelease), void(CFTypeRef)>);
static_assert(isDeclaredAs<decltype(CFEqual), Boolean(CFTypeRef, CFTypeRef)>);
static_assert(isDeclaredAs<decltype(CFRangeMake(0, 0)), CFRange>);
static_assert(isDeclaredAs<decltype(CFArrayGetTypeID), CFTypeID()>);
static_assert(isDeclaredAs<decltype(CFArrayCreate), CFArrayRef(CFAllocatorRef, const void**,
                                                               CFIndex, const CFArrayCallBacks*)>);
static_assert(isDeclaredAs<decltype(CFArrayGetCount), CFIndex(CFArrayRef)>);
static_assert(isDeclaredAs<decltype(CFArrayGetValueAtIndex), const void*(CFArrayRef, CFIndex)>);
static_assert(isDeclaredAs<decltype(CFDictionaryGetTypeID), CFTypeID()>);
static_assert(isDeclaredAs<decltype(CFDictionaryCreate),
                           CFDictionaryRef(CFAllocatorRef, const void**, const void**, CFIndex,
                                           const CFDictionaryKeyCallBacks*,
                                           const CFDictionaryValueCallBacks*)>);
static_assert(
    isDeclaredAs<decltype(CFDictionaryGetValue), const void*(CFDictionaryRef, const void*)>);
static_assert(isDeclaredAs<decltype(CFNumberGetTypeID), CFTypeID()>);
static_assert(isDeclaredAs<decltype(CFNumberGetValue), Boolean(CFNumberRef, CFNumberType, void*)>);
static_assert(isDeclaredAs<decltype(CFDateGetTypeID), CFTypeID()>);
static_assert(isDeclaredAs<decltype(CFDateGetAbsoluteTime), CFAbsoluteTime(CFDateRef)>);
static_assert(isDeclaredAs<decltype(CFDataGetLength), CFIndex(CFDataRef)>);
static_assert(isDeclaredAs<decltype(CFDataGetBytePtr), const UInt8*(CFDataRef)>);
static_assert(isDeclaredAs<decltype(CFStringGetTypeID), CFTypeID()>);
static_assert(
    isDeclaredAs<decltype(CFStringCreateWithBytes),
                 CFStringRef(CFAllocatorRef, const UInt8*, CFIndex, CFStringEncoding, Boolean)>);
static_assert(isDeclaredAs<decltype(CFStringGetLength), CFIndex(CFStringRef)>);
static_assert(
    isDeclaredAs<decltype(CFStringGetBytes), CFIndex(CFStringRef, CFRange, CFStringEncoding, UInt8,
                                                     Boolean, UInt8*, CFIndex, CFIndex*)>);
static_assert(isDeclaredAs<decltype(CFStringCompareWithOptionsAndLocale),
                           CFComparisonResult(CFStringRef, CFStringRef, CFRange,
                                              CFStringCompareFlags, CFLocaleRef)>);
static_assert(isDeclaredAs<decltype(CFLocaleCopyCurrent), CFLocaleRef()>);
static_assert(isDeclaredAs<decltype(CFStringCreateMutableCopy),
                           CFMutableStringRef(CFAllocatorRef, CFIndex, CFStringRef)>);
static_assert(
    isDeclaredAs<decltype(CFStringNormalize), void(CFMutableStringRef, CFStringNormalizationForm)>);
static_assert(isDeclaredAs<decltype(CFStringFold),
                           void(CFMutableStringRef, CFStringCompareFlags, CFLocaleRef)>);
static_assert(isDeclaredAs<decltype(CFPreferencesCopyValue),
                           CFPropertyListRef(CFStringRef, CFStringRef, CFStringRef, CFStringRef)>);
static_assert(
    isDeclaredAs<decltype(CFPreferencesSetValue),
                 void(CFStringRef, CFPropertyListRef, CFStringRef, CFStringRef, CFStringRef)>);
static_assert(isDeclaredAs<decltype(CFPreferencesSynchronize),
                           Boolean(CFStringRef, CFStringRef, CFStringRef)>);
static_assert(isDeclaredAs<decltype(SecItemCopyMatching), OSStatus(CFDictionaryRef, CFTypeRef*)>);
static_assert(isDeclaredAs<decltype(SecIdentityGetTypeID), CFTypeID()>);
static_assert(isDeclaredAs<decltype(SecIdentityCopyCertificate),
                           OSStatus(SecIdentityRef, SecCertificateRef*)>);
static_assert(
    isDeclaredAs<decltype(SecIdentityCopyPrivateKey), OSStatus(SecIdentityRef, SecKeyRef*)>);
static_assert(isDeclaredAs<decltype(SecCertificateCopyData), CFDataRef(SecCertificateRef)>);
static_assert(isDeclaredAs<decltype(SecCertificateCopyValues),
                           CFDictionaryRef(SecCertificateRef, CFArrayRef, CFErrorRef*)>);
static_assert(isDeclaredAs<decltype(SecKeychainItemCopyKeychain),
                           OSStatus(SecKeychainItemRef, SecKeychainRef*)>);
static_assert(
    isDeclaredAs<decltype(SecKeychainItemCopyAccess), OSStatus(SecKeychainItemRef, SecAccessRef*)>);
static_assert(
    isDeclaredAs<decltype(SecKeychainItemSetAccess), OSStatus(SecKeychainItemRef, SecAccessRef)>);
static_assert(isDeclaredAs<decltype(SecAccessCopyACLList), OSStatus(SecAccessRef, CFArrayRef*)>);
static_assert(isDeclaredAs<decltype(SecACLGetTypeID), CFTypeID()>);
static_assert(isDeclaredAs<decltype(SecACLCopyAuthorizations), CFArrayRef(SecACLRef)>);
static_assert(
    isDeclaredAs<decltype(SecACLCopyContents),
                 OSStatus(SecACLRef, CFArrayRef*, CFStringRef*, SecKeychainPromptSelector*)>);
static_assert(isDeclaredAs<decltype(SecACLSetContents), OSStatus(SecACLRef, CFArrayRef, CFStringRef,
                                                                 SecKeychainPromptSelector)>);
static_assert(isDeclaredAs<decltype(SecTrustedApplicationGetTypeID), CFTypeID()>);
static_assert(isDeclaredAs<decltype(SecTrustedApplicationCreateFromPath),
                           OSStatus(const char*, SecTrustedApplicationRef*)>);
static_assert(isDeclaredAs<decltype(SecTrustedApplicationCopyData),
                           OSStatus(SecTrustedApplicationRef, CFDataRef*)>);
static_assert(
    isDeclaredAs<decltype(CC_SHA256), unsigned char*(const void*, CC_LONG, unsigned char*)>);

}  // namespace
