// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "LumaretMacHelper/CertificateProperty.hpp"
#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret {

/// A certificate of the Keychain.
class KeychainCertificate {
 public:
  virtual ~KeychainCertificate() = default;
  /// Nothing when the certificate cannot be read.
  [[nodiscard]] virtual std::optional<CertificateValues> copyValues() const = 0;
  /// The certificate's DER bytes; empty when they cannot be had.
  [[nodiscard]] virtual Bytes data() const = 0;
};

/// A certificate and its private key, as the Keychain returned them.
class KeychainIdentity {
 public:
  virtual ~KeychainIdentity() = default;
  [[nodiscard]] virtual bool hasPrivateKey() const = 0;
  /// Null when the certificate cannot be obtained.
  [[nodiscard]] virtual std::unique_ptr<KeychainCertificate> copyCertificate() const = 0;
};

class KeychainIdentityQuerying {
 public:
  virtual ~KeychainIdentityQuerying() = default;
  /// Every identity of the current user, in the Keychain's order; none is an empty list. Throws
  /// CertificateSelectorError::keychainFailure.
  [[nodiscard]] virtual std::vector<std::unique_ptr<KeychainIdentity>> copyIdentities() const = 0;
};

struct ParsedCertificateValues {
  CertificatePrincipal subject;
  CertificatePrincipal issuer;
  Date expiresAt;

  bool operator==(const ParsedCertificateValues&) const = default;
};

/// Reads names and expiry from a certificate's values. Never throws for what they hold: malformed
/// parts of a name leave its fields absent.
class CertificateValueParser {
 public:
  CertificateValueParser() = delete;

  /// Nothing when the certificate cannot be read or has no readable expiry.
  static std::optional<ParsedCertificateValues> parse(const KeychainCertificate& certificate);

  /// The instant that a date or a number denotes; nothing for another type, or for a number more
  /// than 30,000 years away.
  static std::optional<Date> date(const OptionalCertificateProperty& value);

  static CertificatePrincipal principal(const OptionalCertificateProperty& value);

  /// Adds the recognised attributes that the value holds at any depth, by object identifier. The
  /// first that is not empty wins; one that is already there stays.
  static void collectDistinguishedNameFields(const OptionalCertificateProperty& value,
                                             std::map<std::string, std::string>& fields);
};

/// The current time, by the system's clock.
Date currentDate();

class KeychainIdentityLoader final : public IdentityLoading {
 public:
  using Clock = std::function<Date()>;

  /// Over the platform's Keychain and the current time.
  KeychainIdentityLoader();
  explicit KeychainIdentityLoader(std::shared_ptr<const KeychainIdentityQuerying> query,
                                  Clock now = currentDate);

  [[nodiscard]] std::vector<ClientIdentity> loadIdentities() const override;

 private:
  std::shared_ptr<const KeychainIdentityQuerying> query_;
  Clock now_;
};

}  // namespace lumaret
