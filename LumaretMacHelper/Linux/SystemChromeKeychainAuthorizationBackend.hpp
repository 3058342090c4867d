#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "CertificateDatabase.hpp"
#include "KeychainChromePrivateKeyAuthorizer.hpp"

namespace lumaret {

/// Chrome's certificate store seen as a Keychain. A key in the user's database without a password
/// has one signing entry that allows any application; a key behind a password or on another token
/// may always ask for its own PIN, so that it is unsupported. There is nothing to write.
class SystemChromeKeychainAuthorizationBackend {
 public:
  using Identity = std::shared_ptr<const StoredIdentity>;
  using PrivateKey = Identity;
  struct Access {};
  struct ACL {};
  struct TrustedApplication {};

  [[nodiscard]] std::vector<Identity> copyIdentities() const;
  [[nodiscard]] Bytes certificateData(const Identity& identity) const;
  [[nodiscard]] std::optional<PrivateKey> copyPrivateKey(const Identity& identity) const;
  [[nodiscard]] Access copyAccess(const PrivateKey& privateKey) const;
  [[nodiscard]] std::vector<ACL> copySigningACLs(const Access& access) const;
  [[nodiscard]] ChromeKeychainACLContents<TrustedApplication> copyContents(const ACL& acl) const;
  void setContents(const ChromeKeychainACLContents<TrustedApplication>& contents,
                   const ACL& acl) const;
  void setAccess(const Access& access, const PrivateKey& privateKey) const;
  [[nodiscard]] TrustedApplication chromeTrustedApplication() const;
  [[nodiscard]] Bytes identityData(const TrustedApplication& application) const;
};

}  // namespace lumaret
