// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/macOS/IdentityMatching.hpp"

#include <array>

namespace lumaret {

MatchingIdentities copyMatchingIdentities() {
  std::array<const void*, 3> keys = {kSecClass, kSecReturnRef, kSecMatchLimit};
  std::array<const void*, 3> values = {kSecClassIdentity, kCFBooleanTrue, kSecMatchLimitAll};
  const auto query = CoreFoundationReference<CFDictionaryRef>::adopt(
      ::CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(), keys.size(),
                           &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  MatchingIdentities answer;
  answer.status = ::SecItemCopyMatching(query.get(), answer.result.receive());
  return answer;
}

}  // namespace lumaret
