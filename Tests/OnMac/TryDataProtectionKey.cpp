// SPDX-License-Identifier: Apache-2.0
// Tries to make a key that is in no keychain file. Prints the result, and the result of the call
// that distinguishes such a key from others. Succeeds in any case, because macOS makes such keys
// only for programs with an entitlement, which requires a certificate of Apple's.

#include <Security/Security.h>

#include <array>
#include <cstdint>
#include <iostream>

#include "LumaretMacHelper/macOS/CoreFoundationReference.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"

// SecKeychainItemCopyKeychain is deprecated, like keychain files.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace {

using namespace lumaret;

template <std::size_t Count>
CoreFoundationReference<CFDictionaryRef> dictionary(std::array<const void*, Count> keys,
                                                    std::array<const void*, Count> values) {
  return CoreFoundationReference<CFDictionaryRef>::adopt(
      ::CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(), Count,
                           &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

}  // namespace

int main() {
  const auto label = coreFoundationText("Lumaret test key");
  constexpr std::int32_t size = 256;
  const auto bits = CoreFoundationReference<CFNumberRef>::adopt(
      ::CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &size));
  const auto kept =
      dictionary<2>({kSecAttrIsPermanent, kSecAttrLabel}, {kCFBooleanTrue, label.get()});
  const auto wanted = dictionary<4>(
      {kSecAttrKeyType, kSecAttrKeySizeInBits, kSecUseDataProtectionKeychain, kSecPrivateKeyAttrs},
      {kSecAttrKeyTypeECSECPrimeRandom, bits.get(), kCFBooleanTrue, kept.get()});
  CoreFoundationReference<CFErrorRef> error;
  const auto key = CoreFoundationReference<SecKeyRef>::adopt(
      ::SecKeyCreateRandomKey(wanted.get(), error.receive()));
  if (!key) {
    std::cout << "No data-protection key: status " << ::CFErrorGetCode(error.get()) << '\n';
    return 0;
  }
  CoreFoundationReference<SecKeychainRef> keychain;
  const OSStatus status = ::SecKeychainItemCopyKeychain(
      reinterpret_cast<SecKeychainItemRef>(key.get()), keychain.receive());
  std::cout << "A data-protection key; SecKeychainItemCopyKeychain answers " << status << '\n';
  const auto itself = dictionary<3>({kSecClass, kSecUseDataProtectionKeychain, kSecValueRef},
                                    {kSecClassKey, kCFBooleanTrue, key.get()});
  std::cout << "Removed again with status " << ::SecItemDelete(itself.get()) << '\n';
}
