// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lumaret {

/// An instant in UTC. Microseconds, since nanoseconds end in the year 2262, but a certificate that
/// never expires says 9999-12-31T23:59:59Z.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

using Bytes = std::vector<std::uint8_t>;

/// A status code of the Security framework; on Linux, an error number of NSS. 0 is success.
using KeychainStatus = std::int32_t;

/// The user dismissed a Keychain confirmation (`errSecUserCanceled`).
inline constexpr KeychainStatus keychainStatusUserCanceled = -128;
/// A call succeeded but returned nothing or another type of object, or it failed without a status
/// (`errSecInternalComponent`).
inline constexpr KeychainStatus keychainStatusInternalComponent = -2070;

/// The message for what a foreign library throws that is not a std::exception.
inline constexpr const char* unknownError = "Unknown error.";

/// The browser's bundle identifier on macOS, which stands for it on every platform.
inline constexpr const char* chromeIdentifier = "com.google.Chrome";

/// The attributes of a distinguished name that Chrome's certificate filters match. One that the
/// certificate does not have is absent, never empty.
struct CertificatePrincipal {
  std::optional<std::string> commonName;
  std::optional<std::string> organization;
  std::optional<std::string> organizationalUnit;
  std::optional<std::string> locality;

  /// The fields that are present and not empty, under Chrome's keys "CN", "L", "O" and "OU".
  [[nodiscard]] std::map<std::string, std::string> chromeFilterFields() const;

  bool operator==(const CertificatePrincipal&) const = default;
};

/// A certificate whose private key is in the user's Keychain.
struct ClientIdentity {
  /// SHA-256 of the certificate's DER bytes, 64 lower-case hexadecimal digits.
  std::string id;
  CertificatePrincipal subject;
  CertificatePrincipal issuer;
  Date expiresAt;

  /// The subject's common name, unchanged, or "Unnamed certificate" if it has none.
  [[nodiscard]] std::string displayName() const;

  bool operator==(const ClientIdentity&) const = default;
};

// Errors. A failure is thrown, and every error of this module is a std::exception. The services
// that change something turn what their collaborators throw into a CertificateSelectorError; the
// authorizer and the launcher rethrow one unchanged. The front end prints the error's message and
// nothing else. Something that may simply be missing (an attribute of a name, a private key, a
// stored value) is not an error: it is an empty optional or list, which never stands for a refusal.
// A listing leaves out an identity that cannot be read.

/// A failure that the tool reports to the user. what() is the message.
class CertificateSelectorError : public std::exception {
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
    return {Kind::keychainFailure,
            "Keychain could not be read (error " + std::to_string(status) + ")."};
  }
  /// The text is the end of the message and includes its full stop.
  static CertificateSelectorError chromeLaunchFailed(const std::string& text) {
    return {Kind::chromeLaunchFailed, "Google Chrome could not be opened: " + text};
  }
  static CertificateSelectorError keychainAuthorizationFailed(KeychainStatus status) {
    return {Kind::keychainAuthorizationFailed,
            "Keychain could not authorize Google Chrome for this certificate (error " +
                std::to_string(status) + "). No Chrome certificate rule was changed."};
  }
  static CertificateSelectorError certificateHasNoSubject() {
    return {Kind::certificateHasNoSubject,
            "This certificate has no subject fields Chrome can match."};
  }
  static CertificateSelectorError policyEncodingFailed() {
    return {Kind::policyEncodingFailed, "The Chrome certificate rule could not be encoded."};
  }
  static CertificateSelectorError policyWriteFailed() {
    return {Kind::policyWriteFailed, "The Chrome certificate rule could not be saved."};
  }
  static CertificateSelectorError policyVerificationFailed() {
    return {Kind::policyVerificationFailed,
            "The Chrome certificate rule was saved but could not be verified."};
  }
  static CertificateSelectorError chromeNotInstalled() {
    return {Kind::chromeNotInstalled, "Google Chrome is not installed in /Applications."};
  }
  static CertificateSelectorError selectedIdentityNotFound() {
    return {Kind::selectedIdentityNotFound,
            "The selected certificate is no longer available in Keychain. Refresh the list and "
            "select it again."};
  }
  static CertificateSelectorError selectedIdentityAmbiguous() {
    return {Kind::selectedIdentityAmbiguous,
            "Keychain returned more than one identity for the selected certificate. Remove the "
            "duplicate identity and try again."};
  }
  static CertificateSelectorError selectedIdentityHasNoPrivateKey() {
    return {Kind::selectedIdentityHasNoPrivateKey,
            "The selected certificate has no usable private key in Keychain. Import its complete "
            "identity and try again."};
  }
  static CertificateSelectorError chromeKeyAuthorizationUnsupported() {
    return {Kind::chromeKeyAuthorizationUnsupported,
            "This certificate's private key does not support persistent Chrome authorization. "
            "Smart cards and security tokens may still require their own PIN or confirmation."};
  }
  static CertificateSelectorError keychainAuthorizationCancelled() {
    return {Kind::keychainAuthorizationCancelled,
            "Chrome was not authorized because the Keychain confirmation was cancelled. No Chrome "
            "certificate rule was changed."};
  }

  [[nodiscard]] Kind kind() const noexcept { return kind_; }
  /// The whole message. what() ends at a zero byte in the payload's text.
  [[nodiscard]] const std::string& errorDescription() const noexcept { return message_; }
  [[nodiscard]] const char* what() const noexcept override { return message_.c_str(); }

  /// The message contains the payload, so it tells payloads apart.
  bool operator==(const CertificateSelectorError& other) const {
    return kind_ == other.kind_ && message_ == other.message_;
  }

 private:
  CertificateSelectorError(Kind kind, std::string message)
      : kind_(kind), message_(std::move(message)) {}

  Kind kind_;
  std::string message_;
};

/// Lists the current user's usable identities.
class IdentityLoading {
 public:
  virtual ~IdentityLoading() = default;
  /// The identities with a private key, a readable certificate and an expiry in the future, one for
  /// each fingerprint, in the order in which a user sees them. Throws CertificateSelectorError, or
  /// another std::exception if the names cannot be sorted.
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
