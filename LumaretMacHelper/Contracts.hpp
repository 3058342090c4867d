// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace lumaret {

/// An instant in UTC, in microseconds: a certificate that never expires says
/// 9999-12-31T23:59:59Z, and a clock of nanoseconds ends in the year 2262.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

using Bytes = std::vector<std::uint8_t>;

/// A status code of the Security framework; on Linux the error number of NSS. 0 is success.
using KeychainStatus = std::int32_t;

/// The user dismissed a Keychain confirmation (`errSecUserCanceled`).
inline constexpr KeychainStatus keychainStatusUserCanceled = -128;
/// A call succeeded with nothing or with an object of the wrong type, or failed in a way that has
/// no status of its own (`errSecInternalComponent`).
inline constexpr KeychainStatus keychainStatusInternalComponent = -2070;

/// What is told of a failure that is no std::exception, as a foreign library may throw.
inline constexpr const char* unknownError = "Unknown error.";

/// A distinguished name reduced to the attributes that Chrome's certificate filters match.
/// An attribute that the certificate does not carry is absent, never empty.
struct CertificatePrincipal {
  std::optional<std::string> commonName;
  std::optional<std::string> organization;
  std::optional<std::string> organizationalUnit;
  std::optional<std::string> locality;

  /// The fields that are present and not empty, under the keys of Chrome's filters: "CN", "L", "O"
  /// and "OU". Empty when the name has nothing that Chrome can match.
  [[nodiscard]] std::map<std::string, std::string> chromeFilterFields() const;

  bool operator==(const CertificatePrincipal&) const = default;
};

/// A certificate whose private key is in the user's Keychain.
struct ClientIdentity {
  /// SHA-256 of the certificate's DER bytes, 64 lower-case hexadecimal digits.
  std::string id;
  CertificatePrincipal subject;
  CertificatePrincipal issuer;
  /// The end of the certificate's validity.
  Date expiresAt;

  /// The subject's common name as it stands, or "Unnamed certificate" when it has none.
  [[nodiscard]] std::string displayName() const;

  bool operator==(const ClientIdentity&) const = default;
};

// Errors. A failure is thrown, and every error of this module is a std::exception. Each service
// turns what its collaborators throw into a CertificateSelectorError before it leaves the service,
// and lets one that was raised deeper down pass unchanged; the front end prints what() and nothing
// else. What is absent by nature (a name's attribute, a private key, a stored value) is not an
// error but an empty optional or list, and never stands for a refusal. Within a listing, an
// identity that cannot be read is left out.

/// Every failure that a user is told about. what() is the message, an English sentence for an end
/// user; two errors are equal when their kind and payload are.
class CertificateSelectorError : public std::runtime_error {
 public:
  enum class Kind : std::uint8_t {
    keychainFailure,
    chromeLaunchFailed,
    keychainAuthorizationFailed,
    certificateHasNoSubject,
    policyEncodingFailed,
    policyWriteFailed,
    policyVerificationFailed,
    chromeNotInstalled,
    selectedIdentityNotFound,
    selectedIdentityAmbiguous,
    selectedIdentityHasNoPrivateKey,
    chromeKeyAuthorizationUnsupported,
    keychainAuthorizationCancelled,
  };

  static CertificateSelectorError keychainFailure(KeychainStatus status);
  /// The text ends the message: it brings its own full stop.
  static CertificateSelectorError chromeLaunchFailed(const std::string& text);
  static CertificateSelectorError keychainAuthorizationFailed(KeychainStatus status);
  static CertificateSelectorError certificateHasNoSubject();
  static CertificateSelectorError policyEncodingFailed();
  static CertificateSelectorError policyWriteFailed();
  static CertificateSelectorError policyVerificationFailed();
  static CertificateSelectorError chromeNotInstalled();
  static CertificateSelectorError selectedIdentityNotFound();
  static CertificateSelectorError selectedIdentityAmbiguous();
  static CertificateSelectorError selectedIdentityHasNoPrivateKey();
  static CertificateSelectorError chromeKeyAuthorizationUnsupported();
  static CertificateSelectorError keychainAuthorizationCancelled();

  [[nodiscard]] Kind kind() const noexcept { return kind_; }
  /// The whole message. what() ends at a zero byte of the payload's text, if it has one.
  [[nodiscard]] std::string errorDescription() const { return message(kind_, payload_); }

  bool operator==(const CertificateSelectorError& other) const {
    return kind_ == other.kind_ && payload_ == other.payload_;
  }

 private:
  using Payload = std::variant<std::monostate, KeychainStatus, std::string>;

  explicit CertificateSelectorError(Kind kind, Payload payload = {});

  static std::string message(Kind kind, const Payload& payload);

  Kind kind_;
  Payload payload_;
};

/// Lists the current user's usable identities.
class IdentityLoading {
 public:
  virtual ~IdentityLoading() = default;
  /// Those with a private key, a readable certificate and an expiry still to come, one per
  /// fingerprint, in the order in which a user is shown them. Throws CertificateSelectorError.
  [[nodiscard]] virtual std::vector<ClientIdentity> loadIdentities() const = 0;
};

/// Makes an identity the one that Chrome selects by itself.
class ChromePolicyApplying {
 public:
  virtual ~ChromePolicyApplying() = default;
  /// Returns once the change is stored and verified. Throws CertificateSelectorError.
  virtual void apply(const ClientIdentity& identity) const = 0;
};

/// Lets Chrome sign with an identity's private key.
class ChromePrivateKeyAuthorizing {
 public:
  virtual ~ChromePrivateKeyAuthorizing() = default;
  /// Returns only when Chrome may sign without the user being asked, as far as the key's access
  /// list decides that. Throws CertificateSelectorError.
  virtual void authorize(const ClientIdentity& identity) const = 0;
};

class ChromeOpening {
 public:
  virtual ~ChromeOpening() = default;
  [[nodiscard]] virtual bool isChromeInstalled() const = 0;
  /// Opens a new window without a destination. Throws CertificateSelectorError.
  virtual void open() const = 0;
};

}  // namespace lumaret
