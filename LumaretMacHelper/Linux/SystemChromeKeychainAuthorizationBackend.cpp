#include "SystemChromeKeychainAuthorizationBackend.hpp"

#include <utility>

namespace lumaret {

using Backend = SystemChromeKeychainAuthorizationBackend;

std::vector<Backend::Identity> Backend::copyIdentities() const {
  std::vector<Identity> identities;
  try {
    for (StoredIdentity& identity : readStoredIdentities()) {
      identities.push_back(std::make_shared<const StoredIdentity>(std::move(identity)));
    }
  } catch (const CertificateDatabaseError& error) {
    throw KeychainAuthorizationBackendError::status(error.status);
  }
  return identities;
}

Bytes Backend::certificateData(const Identity& identity) const { return identity->certificate; }

std::optional<Backend::PrivateKey> Backend::copyPrivateKey(const Identity& identity) const {
  return identity;
}

Backend::Access Backend::copyAccess(const PrivateKey& privateKey) const {
  if (!privateKey->keyIsUnguarded) {
    throw KeychainAuthorizationBackendError::unsupported();
  }
  return {};
}

std::vector<Backend::ACL> Backend::copySigningACLs(const Access& /*access*/) const {
  return std::vector<ACL>(1);
}

ChromeKeychainACLContents<Backend::TrustedApplication> Backend::copyContents(
    const ACL& /*acl*/) const {
  return {};
}

void Backend::setContents(const ChromeKeychainACLContents<TrustedApplication>& /*contents*/,
                          const ACL& /*acl*/) const {
  throw KeychainAuthorizationBackendError::unsupported();
}

void Backend::setAccess(const Access& /*access*/, const PrivateKey& /*privateKey*/) const {
  throw KeychainAuthorizationBackendError::unsupported();
}

Backend::TrustedApplication Backend::chromeTrustedApplication() const {
  throw KeychainAuthorizationBackendError::unsupported();
}

Bytes Backend::identityData(const TrustedApplication& /*application*/) const {
  throw KeychainAuthorizationBackendError::unsupported();
}

}  // namespace lumaret
