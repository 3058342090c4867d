// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <optional>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret {

/// A certificate of Chrome's store whose private key is there too.
struct StoredIdentity {
  /// DER.
  Bytes certificate;
  /// The key is in the user's own database and no password guards it: any application of the user
  /// may sign with it without the user being asked.
  bool keyIsUnguarded = false;
};

/// NSS refused.
class CertificateDatabaseError : public std::exception {
 public:
  explicit CertificateDatabaseError(KeychainStatus status) : status_(status) {}

  /// NSS's own error number, which is negative.
  [[nodiscard]] KeychainStatus status() const noexcept { return status_; }
  [[nodiscard]] const char* what() const noexcept override {
    return "The certificate database could not be read";
  }

 private:
  KeychainStatus status_;
};

/// Every identity in the store that Chrome for Linux uses, the NSS database of the user and the
/// PKCS#11 modules that it names, in NSS's order. No database is no identities. Reads only, never
/// logs in and never prompts: behind a password, an identity is found by its public key. A token
/// that fails counts as absent; throws CertificateDatabaseError when the database itself does.
std::vector<StoredIdentity> readStoredIdentities();

}  // namespace lumaret
