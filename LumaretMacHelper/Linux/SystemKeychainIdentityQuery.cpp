// SPDX-License-Identifier: Apache-2.0
#include <utility>

#include "LumaretMacHelper/Linux/CertificateDatabase.hpp"
#include "LumaretMacHelper/Linux/CertificateDecoder.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"

namespace lumaret {
namespace {

/// The store returns a certificate as an identity only if its key is there.
class StoredKeychainIdentity final : public KeychainIdentity {
 public:
  explicit StoredKeychainIdentity(Bytes certificate) : certificate_(std::move(certificate)) {}

  [[nodiscard]] bool hasPrivateKey() const override { return true; }
  [[nodiscard]] std::optional<KeychainCertificate> copyCertificate() const override {
    return KeychainCertificate{decodeCertificate(certificate_), certificate_};
  }

 private:
  Bytes certificate_;
};

}  // namespace

KeychainIdentityLoader::KeychainIdentityLoader()
    : KeychainIdentityLoader(std::make_shared<SystemKeychainIdentityQuery>()) {}

std::vector<std::unique_ptr<KeychainIdentity>> SystemKeychainIdentityQuery::copyIdentities() const {
  std::vector<std::unique_ptr<KeychainIdentity>> identities;
  try {
    for (StoredIdentity& identity : readStoredIdentities()) {
      identities.push_back(
          std::make_unique<StoredKeychainIdentity>(std::move(identity.certificate)));
    }
  } catch (const CertificateDatabaseError& error) {
    throw CertificateSelectorError::keychainFailure(error.status());
  }
  return identities;
}

}  // namespace lumaret
