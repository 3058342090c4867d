// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the adapters use of Core Foundation, and with which the stand-in for the other frameworks
// makes values. Declarations.cpp compares it with Apple's own header.

#include <cstdint>

extern "C" {

using Boolean = unsigned char;
using UInt8 = unsigned char;
using UniChar = unsigned short;
using UInt32 = unsigned int;
using SInt32 = int;
using OSStatus = SInt32;
using CFTypeID = unsigned long;
using CFOptionFlags = unsigned long;
using CFIndex = long;
using CFTypeRef = const void*;
using CFPropertyListRef = CFTypeRef;

using CFAllocatorRef = const struct __CFAllocator*;
using CFArrayRef = const struct __CFArray*;
using CFBooleanRef = const struct __CFBoolean*;
using CFDataRef = const struct __CFData*;
using CFDateRef = const struct __CFDate*;
using CFDictionaryRef = const struct __CFDictionary*;
using CFErrorRef = struct __CFError*;
using CFLocaleRef = const struct __CFLocale*;
using CFNumberRef = const struct __CFNumber*;
using CFStringRef = const struct __CFString*;
using CFMutableStringRef = struct __CFString*;

using CFStringEncoding = UInt32;
using CFStringCompareFlags = CFOptionFlags;

#ifndef __APPLE__
struct CFArrayCallBacks;
struct CFDictionaryKeyCallBacks;
struct CFDictionaryValueCallBacks;

struct CFRange {
  CFIndex location;
  CFIndex length;
};

inline CFRange CFRangeMake(CFIndex location, CFIndex length) { return {location, length}; }

enum CFComparisonResult : CFIndex {
  kCFCompareLessThan = -1L,
  kCFCompareEqualTo = 0,
  kCFCompareGreaterThan = 1,
};

enum CFNumberType : CFIndex { kCFNumberDoubleType = 13 };
enum : CFStringEncoding { kCFStringEncodingUTF8 = 0x08000100 };
enum : CFStringCompareFlags { kCFCompareCaseInsensitive = 1, kCFCompareLocalized = 32 };
enum CFStringNormalizationForm : CFIndex { kCFStringNormalizationFormC = 2 };
#endif

extern const CFAllocatorRef kCFAllocatorDefault;

CFTypeID CFGetTypeID(CFTypeRef object);
CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);
Boolean CFEqual(CFTypeRef left, CFTypeRef right);

extern const CFArrayCallBacks kCFTypeArrayCallBacks;
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

CFTypeID CFArrayGetTypeID();
CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                         const CFArrayCallBacks* callBacks);
CFIndex CFArrayGetCount(CFArrayRef array);
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

CFTypeID CFDictionaryGetTypeID();
CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values,
                                   CFIndex count, const CFDictionaryKeyCallBacks* keyCallBacks,
                                   const CFDictionaryValueCallBacks* valueCallBacks);
const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);

extern const CFBooleanRef kCFBooleanTrue;

CFTypeID CFNumberGetTypeID();
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);

using CFTimeInterval = double;
using CFAbsoluteTime = CFTimeInterval;

CFTypeID CFDateGetTypeID();
CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime seconds);
CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date);

CFTypeID CFDataGetTypeID();
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
CFIndex CFDataGetLength(CFDataRef data);
const UInt8* CFDataGetBytePtr(CFDataRef data);

CFTypeID CFStringGetTypeID();
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation);
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* characters,
                                         CFIndex count);
CFIndex CFStringGetLength(CFStringRef text);
CFIndex CFStringGetBytes(CFStringRef text, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
                         Boolean isExternalRepresentation, UInt8* buffer, CFIndex maxBufLen,
                         CFIndex* usedBufLen);
CFComparisonResult CFStringCompareWithOptionsAndLocale(CFStringRef left, CFStringRef right,
                                                       CFRange range, CFStringCompareFlags options,
                                                       CFLocaleRef locale);

CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef allocator, CFIndex maxLength,
                                             CFStringRef text);
void CFStringNormalize(CFMutableStringRef text, CFStringNormalizationForm form);
void CFStringFold(CFMutableStringRef text, CFStringCompareFlags flags, CFLocaleRef locale);

CFLocaleRef CFLocaleCopyCurrent();

extern const CFStringRef kCFPreferencesAnyHost;
extern const CFStringRef kCFPreferencesCurrentUser;

CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef application, CFStringRef user,
                                         CFStringRef host);
void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef application,
                           CFStringRef user, CFStringRef host);
Boolean CFPreferencesSynchronize(CFStringRef application, CFStringRef user, CFStringRef host);

Boolean CFPreferencesAppValueIsForced(CFStringRef key, CFStringRef application);
CFPropertyListRef CFPreferencesCopyAppValue(CFStringRef key, CFStringRef application);
}
