#pragma once

#include <optional>
#include <vector>

#include "Contracts.hpp"

namespace lumaret {

/// A certificate of Chrome's store whose private key is there too.
struct StoredIdentity {
  /// DER.
  Bytes certificate;
  /// The key is in the user's own database and no password guards it: any application of the user
  /// may sign with it without the user being asked.
  bool keyIsUnguarded = false;
};

/// NSS refused; the number is its own (negative) error.
struct CertificateDatabaseError {
  KeychainStatus status;
};

/// Every identity in the store that Chrome for Linux uses, the NSS database of the user and the
/// PKCS#11 modules that it names, in NSS's order. No database is no identities. Reads only, never
/// logs in and never prompts: behind a password, an identity is found by its public key. A token
/// that fails counts as absent; throws CertificateDatabaseError when the database itself does.
std::vector<StoredIdentity> readStoredIdentities();

}  // namespace lumaret
