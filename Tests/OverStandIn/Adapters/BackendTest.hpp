// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <utility>

#include "LumaretMacHelper/macOS/SystemChromeKeychainAuthorizationBackend.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests {

using Backend = SystemChromeKeychainAuthorizationBackend;
using BackendError = KeychainAuthorizationBackendError;

inline const Backend backend;

// Objects of the first identity in the Keychain.
inline Backend::Identity firstIdentity() { return backend.copyIdentities().at(0); }
inline Backend::PrivateKey firstKey() { return backend.copyPrivateKey(firstIdentity()).value(); }
inline Backend::Access firstAccess() { return backend.copyAccess(firstKey()); }
inline Backend::ACL firstEntry() { return backend.copySigningACLs(firstAccess()).at(0); }

class BackendTest : public OverStandIn {
 protected:
  void SetUp() override {
    OverStandIn::SetUp();
    machine().identities = {identity("ana", {signingEntry({"/Mail"})})};
  }

  static standin::AccessListEntry& storedEntry(std::size_t index = 0) {
    return machine().identities[0].privateKey->accessList->at(index);
  }

  template <typename Action>
  static std::optional<BackendError> failure(Action&& action) {
    return thrownBy<BackendError>(std::forward<Action>(action));
  }
};

}  // namespace lumaret::tests
