// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <Security/Security.h>

#include <optional>
#include <vector>

#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"

namespace lumaret {

/// The access lists of the file-based Keychain. A key is `unsupported` if
/// SecKeychainItemCopyKeychain fails for it with -25304 (`errSecInvalidItemRef`, as with a smart
/// card's) or -25294
/// (`errSecNoSuchKeychain`), or an access-list call with -25304 or -25306 (`errSecNoSuchClass`).
/// From any other call, these are ordinary failures. A call that succeeds but returns nothing, or
/// an object of another type, is a failure with -2070 (`errSecInternalComponent`).
class SystemChromeKeychainAuthorizationBackend {
 public:
  using Identity = CoreFoundationReference<SecIdentityRef>;
  using PrivateKey = CoreFoundationReference<SecKeyRef>;
  using Access = CoreFoundationReference<SecAccessRef>;
  using ACL = CoreFoundationReference<SecACLRef>;
  using TrustedApplication = CoreFoundationReference<SecTrustedApplicationRef>;

  [[nodiscard]] std::vector<Identity> copyIdentities() const;
  [[nodiscard]] Bytes certificateData(const Identity& identity) const;
  [[nodiscard]] std::optional<PrivateKey> copyPrivateKey(const Identity& identity) const;
  [[nodiscard]] Access copyAccess(const PrivateKey& privateKey) const;
  [[nodiscard]] std::vector<ACL> copySigningACLs(const Access& access) const;
  [[nodiscard]] ChromeKeychainACLContents<TrustedApplication> copyContents(const ACL& acl) const;
  /// An absent application list opens the entry to any application.
  void setContents(const ChromeKeychainACLContents<TrustedApplication>& contents,
                   const ACL& acl) const;
  void setAccess(const Access& access, const PrivateKey& privateKey) const;
  [[nodiscard]] TrustedApplication chromeTrustedApplication() const;
  [[nodiscard]] Bytes identityData(const TrustedApplication& application) const;
};

}  // namespace lumaret
