// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/macOS/IdentityMatching.hpp"

#include <array>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"

namespace lumaret {

MatchingIdentities copyMatchingIdentities() {
  std::array<const void*, 3> keys = {kSecClass, kSecReturnRef, kSecMatchLimit};
  std::array<const void*, 3> values = {kSecClassIdentity, kCFBooleanTrue, kSecMatchLimitAll};
  const auto query = CoreFoundationReference<CFDictionaryRef>::adopt(
      ::CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(), keys.size(),
                           &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CoreFoundationReference<CFTypeRef> result;
  MatchingIdentities answer;
  answer.status = ::SecItemCopyMatching(query.get(), result.receive());
  if (answer.status == errSecItemNotFound) {
    return {};
  }
  if (answer.status != errSecSuccess) {
    return answer;
  }
  const auto* array = objectAs<CFArrayRef>(result.get(), ::CFArrayGetTypeID());
  for (const CFTypeRef object : array != nullptr ? elements(array) : std::vector{result.get()}) {
    if (auto* identity = objectAs<SecIdentityRef>(object, ::SecIdentityGetTypeID())) {
      answer.identities.push_back(CoreFoundationReference<SecIdentityRef>::retain(identity));
    } else {
      answer.hasOnlyIdentities = false;
    }
  }
  if (result && array == nullptr && !answer.hasOnlyIdentities) {
    answer.status = errSecInternalComponent;
  }
  return answer;
}

}  // namespace lumaret
