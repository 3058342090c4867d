// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/CertificateDatabase.hpp"
#include "LumaretMacHelper/Linux/CertificateDecoder.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"

namespace lumaret {

KeychainIdentityLoader::KeychainIdentityLoader()
    : KeychainIdentityLoader(std::make_shared<SystemKeychainIdentityQuery>()) {}

std::vector<KeychainIdentity> SystemKeychainIdentityQuery::copyIdentities() const {
  std::vector<KeychainIdentity> identities;
  try {
    for (const StoredIdentity& identity : readStoredIdentities()) {
      // The store returns a certificate as an identity only if its key is there.
      identities.push_back({[] { return true; },
                            [data = identity.certificate] {
                              return KeychainCertificate{decodeCertificate(data), data};
                            }});
    }
  } catch (const CertificateDatabaseError& error) {
    throw CertificateSelectorError::keychainFailure(error.status);
  }
  return identities;
}

}  // namespace lumaret
