// SPDX-License-Identifier: Apache-2.0
#include <optional>
#include <vector>

#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"
#include "LumaretMacHelper/Linux/CertificateDatabase.hpp"

namespace lumaret {
namespace {

/// Presents Chrome's certificate store as a Keychain. A key in the user's database without a
/// password has one signing entry, which allows any application. A key behind a password or on
/// another token may ask for a password or PIN at any time, so it is unsupported. Nothing is ever
/// written.
class SystemChromeKeychainAuthorizationBackend {
 public:
  using Identity = StoredIdentity;
  using PrivateKey = StoredIdentity;
  struct Access {};
  struct ACL {};
  struct TrustedApplication {};
  using Contents = ChromeKeychainACLContents<TrustedApplication>;

  [[nodiscard]] static std::vector<Identity> copyIdentities() {
    try {
      return readStoredIdentities();
    } catch (const CertificateDatabaseError& error) {
      throw KeychainAuthorizationBackendError::status(error.status);
    }
  }
  [[nodiscard]] static Bytes certificateData(const Identity& identity) {
    return identity.certificate;
  }
  [[nodiscard]] static std::optional<PrivateKey> copyPrivateKey(const Identity& identity) {
    return identity;
  }
  [[nodiscard]] static Access copyAccess(const PrivateKey& privateKey) {
    if (!privateKey.keyIsUnguarded) {
      throw KeychainAuthorizationBackendError::unsupported();
    }
    return {};
  }
  [[nodiscard]] static std::vector<ACL> copySigningACLs(const Access& /*access*/) {
    return std::vector<ACL>(1);
  }
  [[nodiscard]] static Contents copyContents(const ACL& /*acl*/) { return {}; }

  // The workflow calls none of the following: the only entry allows any application.
  static void setContents(const Contents& /*contents*/, const ACL& /*acl*/) {
    throw KeychainAuthorizationBackendError::unsupported();
  }
  static void setAccess(const Access& /*access*/, const PrivateKey& /*privateKey*/) {
    throw KeychainAuthorizationBackendError::unsupported();
  }
  [[nodiscard]] static TrustedApplication chromeTrustedApplication() {
    throw KeychainAuthorizationBackendError::unsupported();
  }
  [[nodiscard]] static Bytes identityData(const TrustedApplication& /*application*/) {
    throw KeychainAuthorizationBackendError::unsupported();
  }
};

}  // namespace

KeychainChromePrivateKeyAuthorizer::KeychainChromePrivateKeyAuthorizer()
    : KeychainChromePrivateKeyAuthorizer(SystemChromeKeychainAuthorizationBackend()) {}

}  // namespace lumaret
