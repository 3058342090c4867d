// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <optional>
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

/// Every identity in the store that Chrome for Linux uses, in NSS's order: the user's NSS database,
/// if there is one, and the PKCS#11 modules that it names. Only reads, never logs in, and never
/// prompts; behind a password, an identity is found by its public key. A token that fails counts as
/// absent. Throws CertificateDatabaseError if the database itself fails.
std::vector<StoredIdentity> readStoredIdentities();

}  // namespace lumaret
