// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <optional>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret {

/// A certificate in Chrome's store that has its private key there.
struct StoredIdentity {
  /// DER.
  Bytes certificate;
  /// The key is in the user's own database, and no password protects it. Any application of the
  /// user may sign with it without asking the user.
  bool keyIsUnguarded = false;
};

/// A call of NSS or of a PKCS#11 module failed.
class CertificateDatabaseError : public std::exception {
 public:
  explicit CertificateDatabaseError(KeychainStatus status) : status_(status) {}

  /// NSS's error number, which is negative.
  [[nodiscard]] KeychainStatus status() const noexcept { return status_; }
  [[nodiscard]] const char* what() const noexcept override {
    return "The certificate database could not be read";
  }

 private:
  KeychainStatus status_;
};

/// Returns every identity in the store that Chrome for Linux uses: the NSS database of the user and
/// the PKCS#11 modules that it names. The order is that of NSS. The list is empty if there is no
/// database. The store is only read: the function never logs in and never prompts. Behind a
/// password, an identity is found by its public key. A token that fails counts as absent. Throws
/// CertificateDatabaseError if the database itself fails.
std::vector<StoredIdentity> readStoredIdentities();

}  // namespace lumaret
