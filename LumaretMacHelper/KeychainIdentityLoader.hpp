// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret {

struct CertificateProperty;

/// Absent (null) or a value.
using OptionalCertificateProperty = std::shared_ptr<const CertificateProperty>;

using CertificatePropertyArray = std::vector<CertificateProperty>;

/// One entry of a certificate's values, or a section of further entries. The label of a name's
/// attribute is its object identifier in dotted notation, such as "2.5.4.3".
struct CertificatePropertyDictionary {
  OptionalCertificateProperty label;
  OptionalCertificateProperty value;
};

/// A number that denotes a time counts seconds since 2001-01-01 00:00:00 UTC. std::monostate stands
/// for a value of any type that nothing here reads.
struct CertificateProperty {
  std::variant<std::monostate, std::string, double, Date, CertificatePropertyArray,
               CertificatePropertyDictionary>
      value;
};

/// Each is absent or, in a well-formed certificate, a dictionary.
struct CertificateValues {
  OptionalCertificateProperty subjectName;
  OptionalCertificateProperty issuerName;
  OptionalCertificateProperty validityNotAfter;
};

struct KeychainCertificate {
  /// Nothing if the certificate cannot be read.
  std::optional<CertificateValues> values;
  /// Its DER bytes; empty if they are not available.
  Bytes data;
};

/// A certificate and its private key, as the Keychain returned them.
struct KeychainIdentity {
  std::function<bool()> hasPrivateKey;
  /// Nothing if the certificate cannot be obtained.
  std::function<std::optional<KeychainCertificate>()> copyCertificate;
};

class KeychainIdentityQuerying {
 public:
  virtual ~KeychainIdentityQuerying() = default;
  /// Every identity of the current user, in the Keychain's order. Throws
  /// CertificateSelectorError::keychainFailure.
  [[nodiscard]] virtual std::vector<KeychainIdentity> copyIdentities() const = 0;
};

struct ParsedCertificateValues {
  CertificatePrincipal subject;
  CertificatePrincipal issuer;
  Date expiresAt;

  bool operator==(const ParsedCertificateValues&) const = default;
};

/// Reads names and expiry from a certificate's values. Never throws for their contents: malformed
/// parts of a name leave its fields absent.
class CertificateValueParser {
 public:
  CertificateValueParser() = delete;

  /// Nothing if the certificate cannot be read or has no readable expiry.
  static std::optional<ParsedCertificateValues> parse(const KeychainCertificate& certificate);

  /// The instant that a date or number denotes. Nothing for another type, or for a number that is
  /// 30,000 years or more before or after 2001.
  static std::optional<Date> date(const OptionalCertificateProperty& value);

  static CertificatePrincipal principal(const OptionalCertificateProperty& value);

  /// Whether Chrome's filter with these fields selects a certificate with this name: of several
  /// organizations, or units of one, any may be meant, and of other attributes only the first.
  static bool isSelected(const OptionalCertificateProperty& name,
                         const CertificatePrincipal& filter);

  /// Adds the recognised attributes that the value contains at any depth, by object identifier. The
  /// first value that is not empty wins; a field that is already in the map stays.
  static void collectDistinguishedNameFields(const CertificateProperty* value,
                                             std::map<std::string, std::string>& fields);
};

Date currentDate();

class KeychainIdentityLoader final : public IdentityLoading {
 public:
  using Clock = std::function<Date()>;

  /// Uses the platform's Keychain and the current time.
  KeychainIdentityLoader();
  explicit KeychainIdentityLoader(std::shared_ptr<const KeychainIdentityQuerying> query,
                                  Clock now = currentDate);

  [[nodiscard]] std::vector<ClientIdentity> loadIdentities() const override;

 private:
  std::shared_ptr<const KeychainIdentityQuerying> query_;
  Clock now_;
};

}  // namespace lumaret
