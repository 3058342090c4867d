// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <stdexcept>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret {

/// A certificate in Chrome's store that has its private key there.
struct StoredIdentity {
  Bytes certificate;  // DER
  /// The key is in the user's own database without a password, so any of the user's applications
  /// may sign with it without asking.
  bool keyIsUnguarded = false;
};

/// A call of NSS or of a PKCS#11 module failed.
struct CertificateDatabaseError : std::runtime_error {
  explicit CertificateDatabaseError(KeychainStatus number)
      : std::runtime_error("The certificate database could not be read"), status(number) {}

  KeychainStatus status;  // NSS's error number, which is negative
};

/// The folder of the NSS database that Chrome for Linux uses, even if it is missing: `~/.pki/nssdb`
/// if that exists, or else `pki/nssdb` in the user's data folder.
std::filesystem::path databaseFolder();

/// Every identity in the store that Chrome for Linux uses, in NSS's order: the user's NSS database,
/// if there is one, and the PKCS#11 modules that it names. Only reads, never logs in, and never
/// prompts; behind a password, an identity is found by its public key. Leaves out an identity whose
/// certificate or identifier is oversized (see TokenSession), and a token that fails. Throws
/// CertificateDatabaseError if the database itself fails.
std::vector<StoredIdentity> readStoredIdentities();

}  // namespace lumaret
