// SPDX-License-Identifier: Apache-2.0
#include <utility>

#include "LumaretMacHelper/Linux/CertificateDatabase.hpp"
#include "LumaretMacHelper/Linux/CertificateDecoder.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"

namespace lumaret {
namespace {

/// An identity and its certificate in one: the store returns only certificates whose key is there.
class StoredCertificate final : public KeychainIdentity, public KeychainCertificate {
 public:
  explicit StoredCertificate(Bytes certificate) : certificate_(std::move(certificate)) {}

  [[nodiscard]] bool hasPrivateKey() const override { return true; }
  [[nodiscard]] std::unique_ptr<KeychainCertificate> copyCertificate() const override {
    return std::make_unique<StoredCertificate>(*this);
  }
  [[nodiscard]] std::optional<CertificateValues> copyValues() const override {
    return decodeCertificate(certificate_);
  }
  [[nodiscard]] Bytes data() const override { return certificate_; }

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
      identities.push_back(std::make_unique<StoredCertificate>(std::move(identity.certificate)));
    }
  } catch (const CertificateDatabaseError& error) {
    throw CertificateSelectorError::keychainFailure(error.status);
  }
  return identities;
}

}  // namespace lumaret
