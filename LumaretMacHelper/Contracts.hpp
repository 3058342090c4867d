// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret {

/// An instant in UTC. Microseconds, since nanoseconds end in the year 2262, but a certificate that
/// never expires says 9999-12-31T23:59:59Z.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

using Bytes = std::vector<std::uint8_t>;

/// A status code of the Security framework; on Linux, an error number of NSS. 0 is success.
using KeychainStatus = std::int32_t;

/// The browser's bundle identifier on macOS, which stands for it on every platform.
inline constexpr const char* chromeIdentifier = "com.google.Chrome";

/// SHA-256 of a certificate's DER bytes as 64 lower-case hexadecimal digits.
inline std::string fingerprint(std::span<const std::uint8_t> certificate) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : sha256(certificate)) {
    text += digits[byte >> 4];
    text += digits[byte & 0x0f];
  }
  return text;
}

/// The attributes of a distinguished name that Chrome's certificate filters match. One that the
/// certificate does not have is absent, never empty.
struct CertificatePrincipal {
  std::optional<std::string> commonName;
  std::optional<std::string> organization;
  std::optional<std::string> organizationalUnit;
  std::optional<std::string> locality;

  /// The fields that are present and not empty, under the keys of Chrome's filters.
  [[nodiscard]] std::map<std::string, std::string> chromeFilterFields() const {
    std::map<std::string, std::string> fields;
    for (const auto& [key, value] : {std::pair("CN", &commonName),
                                     {"L", &locality},
                                     {"O", &organization},
                                     {"OU", &organizationalUnit}}) {
      if (*value && !(*value)->empty()) {
        fields.emplace(key, **value);
      }
    }
    return fields;
  }

  bool operator==(const CertificatePrincipal&) const = default;
};

/// A certificate whose private key is in the user's Keychain.
struct ClientIdentity {
  /// The certificate's fingerprint.
  std::string id;
  CertificatePrincipal subject;
  CertificatePrincipal issuer;
  Date expiresAt;

  /// The subject's common name, unchanged, or "Unnamed certificate" if it has none.
  [[nodiscard]] std::string displayName() const {
    return subject.commonName.value_or("Unnamed certificate");
  }

  bool operator==(const ClientIdentity&) const = default;
};

/// An error of this module: a value whose description contains all that it carries. So two errors
/// of a type are equal, and hash alike, if their descriptions are equal.
class DescribedError : public std::exception {
 public:
  /// The whole description. what() ends at a zero byte in it.
  [[nodiscard]] const std::string& errorDescription() const noexcept { return description_; }
  [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

 protected:
  DescribedError(std::string description) : description_(std::move(description)) {}

 private:
  std::string description_;
};

template <std::derived_from<DescribedError> Error>
bool operator==(const Error& left, const Error& right) {
  return left.errorDescription() == right.errorDescription();
}

/// What the error that is being handled says, whatever its type.
inline std::string descriptionOfCaughtError() {
  try {
    throw;
  } catch (const DescribedError& error) {
    return error.errorDescription();
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "Unknown error.";
  }
}

/// A failure that the tool reports to the user, whom the description tells what to do next.
class CertificateSelectorError : public DescribedError {
  using Self = CertificateSelectorError;

 public:
  static Self keychainFailure(KeychainStatus status) {
    return {"Keychain could not be read (error " + std::to_string(status) + ")."};
  }
  /// The text is the end of the message and includes its full stop.
  static Self chromeLaunchFailed(const std::string& text) {
    return {"Google Chrome could not be opened: " + text};
  }
  static Self keychainAuthorizationFailed(KeychainStatus status) {
    return {"Keychain could not authorize Google Chrome for this certificate (error " +
            std::to_string(status) + "). No Chrome certificate rule was changed."};
  }
  static Self certificateHasNoSubject() {
    return {"This certificate has no subject fields Chrome can match."};
  }
  static Self policyEncodingFailed() {
    return {"The Chrome certificate rule could not be encoded."};
  }
  static Self policyWriteFailed() { return {"The Chrome certificate rule could not be saved."}; }
  static Self policyVerificationFailed() {
    return {"The Chrome certificate rule was saved but could not be verified."};
  }
  static Self chromeNotInstalled() { return {"Google Chrome is not installed in /Applications."}; }
  static Self selectedIdentityNotFound() {
    return {
        "The selected certificate is no longer available in Keychain. Refresh the list and select "
        "it again."};
  }
  static Self selectedIdentityAmbiguous() {
    return {
        "Keychain returned more than one identity for the selected certificate. Remove the "
        "duplicate identity and try again."};
  }
  static Self selectedIdentityHasNoPrivateKey() {
    return {
        "The selected certificate has no usable private key in Keychain. Import its complete "
        "identity and try again."};
  }
  static Self chromeKeyAuthorizationUnsupported() {
    return {
        "This certificate's private key does not support persistent Chrome authorization. Smart "
        "cards and security tokens may still require their own PIN or confirmation."};
  }
  static Self keychainAuthorizationCancelled() {
    return {
        "Chrome was not authorized because the Keychain confirmation was cancelled. No Chrome "
        "certificate rule was changed."};
  }

 private:
  using DescribedError::DescribedError;
};

class IdentityLoading {
 public:
  virtual ~IdentityLoading() = default;
  /// The current user's identities with a private key, a readable certificate and an expiry in the
  /// future, one for each fingerprint, in the order in which a user sees them. Throws
  /// CertificateSelectorError, or another std::exception if the names cannot be sorted.
  [[nodiscard]] virtual std::vector<ClientIdentity> loadIdentities() const = 0;
};

class ChromePolicyApplying {
 public:
  virtual ~ChromePolicyApplying() = default;
  /// Makes Chrome select the identity without asking. Returns once that is stored and verified.
  /// Throws CertificateSelectorError.
  virtual void apply(const ClientIdentity& identity) const = 0;
};

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

template <std::derived_from<lumaret::DescribedError> Error>
struct std::hash<Error> {
  std::size_t operator()(const Error& error) const noexcept {
    return std::hash<std::string>()(error.errorDescription());
  }
};
