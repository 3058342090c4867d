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

/// An instant in UTC, in microseconds. A clock of nanoseconds ends in the year 2262, but a
/// certificate that never expires says 9999-12-31T23:59:59Z.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

using Bytes = std::vector<std::uint8_t>;

/// A status code of the Security framework; on Linux, an error number of NSS. 0 is success.
using KeychainStatus = std::int32_t;

/// The user dismissed a Keychain confirmation (`errSecUserCanceled`).
inline constexpr KeychainStatus keychainStatusUserCanceled = -128;
/// A call succeeded but returned nothing or an object of the wrong type, or it failed without a
/// status (`errSecInternalComponent`).
inline constexpr KeychainStatus keychainStatusInternalComponent = -2070;

/// The message for a failure that is not a std::exception. A foreign library may throw one.
inline constexpr const char* unknownError = "Unknown error.";

/// The browser's bundle identifier on macOS, which stands for it on every platform.
inline constexpr const char* chromeIdentifier = "com.google.Chrome";

/// A distinguished name reduced to the attributes that Chrome's certificate filters match. An
/// attribute that the certificate does not have is absent, never empty.
struct CertificatePrincipal {
  std::optional<std::string> commonName;
  std::optional<std::string> organization;
  std::optional<std::string> organizationalUnit;
  std::optional<std::string> locality;

  /// The fields that are present and not empty, under the keys of Chrome's filters: "CN", "L", "O"
  /// and "OU". Empty if the name has nothing that Chrome can match.
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

  /// The subject's common name, unchanged, or "Unnamed certificate" if it has none.
  [[nodiscard]] std::string displayName() const;

  bool operator==(const ClientIdentity&) const = default;
};

// Errors. A failure is thrown, and every error of this module is a std::exception. The services
// that change something turn what their collaborators throw into a CertificateSelectorError. The
// authorizer and the launcher let one that was thrown deeper down pass unchanged. The front end
// prints the error's message and nothing else. Something that may simply be missing (an attribute
// of a name, a private key, a stored value) is not an error. It is an empty optional or an empty
// list, and never stands for a refusal. A listing leaves out an identity that cannot be read.

/// A failure that the tool reports to the user. what() is the message: English text for an end
/// user. Two errors are equal if their kind and payload are equal.
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

  static CertificateSelectorError keychainFailure(KeychainStatus status) {
    return CertificateSelectorError(Kind::keychainFailure, status);
  }
  /// The text is the end of the message and includes its full stop.
  static CertificateSelectorError chromeLaunchFailed(const std::string& text) {
    return CertificateSelectorError(Kind::chromeLaunchFailed, text);
  }
  static CertificateSelectorError keychainAuthorizationFailed(KeychainStatus status) {
    return CertificateSelectorError(Kind::keychainAuthorizationFailed, status);
  }
  static CertificateSelectorError certificateHasNoSubject() {
    return CertificateSelectorError(Kind::certificateHasNoSubject);
  }
  static CertificateSelectorError policyEncodingFailed() {
    return CertificateSelectorError(Kind::policyEncodingFailed);
  }
  static CertificateSelectorError policyWriteFailed() {
    return CertificateSelectorError(Kind::policyWriteFailed);
  }
  static CertificateSelectorError policyVerificationFailed() {
    return CertificateSelectorError(Kind::policyVerificationFailed);
  }
  static CertificateSelectorError chromeNotInstalled() {
    return CertificateSelectorError(Kind::chromeNotInstalled);
  }
  static CertificateSelectorError selectedIdentityNotFound() {
    return CertificateSelectorError(Kind::selectedIdentityNotFound);
  }
  static CertificateSelectorError selectedIdentityAmbiguous() {
    return CertificateSelectorError(Kind::selectedIdentityAmbiguous);
  }
  static CertificateSelectorError selectedIdentityHasNoPrivateKey() {
    return CertificateSelectorError(Kind::selectedIdentityHasNoPrivateKey);
  }
  static CertificateSelectorError chromeKeyAuthorizationUnsupported() {
    return CertificateSelectorError(Kind::chromeKeyAuthorizationUnsupported);
  }
  static CertificateSelectorError keychainAuthorizationCancelled() {
    return CertificateSelectorError(Kind::keychainAuthorizationCancelled);
  }

  [[nodiscard]] Kind kind() const noexcept { return kind_; }
  /// The whole message. what() would end at a zero byte in the payload's text.
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
  /// Returns the identities that have a private key, a readable certificate and an expiry in the
  /// future, one for each fingerprint, in the order in which a user sees them. Throws
  /// CertificateSelectorError, or another std::exception if the names cannot be sorted.
  [[nodiscard]] virtual std::vector<ClientIdentity> loadIdentities() const = 0;
};

/// Makes Chrome select one identity without asking.
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
  /// Returns only if Chrome may sign without asking the user, as far as the key's access list
  /// decides that. Throws CertificateSelectorError.
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
