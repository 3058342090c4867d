// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/KeychainIdentityLoader.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <compare>
#include <utility>

#include "LumaretMacHelper/Fingerprint.hpp"
#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret {
namespace {

constexpr const char* commonNameOID = "2.5.4.3";
constexpr const char* localityOID = "2.5.4.7";
constexpr const char* organizationOID = "2.5.4.10";
constexpr const char* organizationalUnitOID = "2.5.4.11";

bool isRecognised(const std::string& attribute) {
  return attribute == commonNameOID || attribute == localityOID || attribute == organizationOID ||
         attribute == organizationalUnitOID;
}

template <typename Type>
const Type* valueAs(const OptionalCertificateProperty& property) {
  return property ? std::get_if<Type>(&property->value) : nullptr;
}

void collect(const CertificateProperty* property, std::map<std::string, std::string>& fields) {
  if (property == nullptr) {
    return;
  }
  if (const auto* elements = std::get_if<CertificatePropertyArray>(&property->value)) {
    for (const CertificateProperty& element : *elements) {
      collect(&element, fields);
    }
  } else if (const auto* entry = std::get_if<CertificatePropertyDictionary>(&property->value)) {
    const auto* label = valueAs<std::string>(entry->label);
    const auto* text = valueAs<std::string>(entry->value);
    if (label != nullptr && text != nullptr && !text->empty() && isRecognised(*label)) {
      fields.try_emplace(*label, *text);
    }
    collect(entry->value.get(), fields);
  }
}

}  // namespace

std::optional<ParsedCertificateValues> CertificateValueParser::parse(
    const KeychainCertificate& certificate) {
  const auto& values = certificate.values;
  const auto* notAfter =
      values ? valueAs<CertificatePropertyDictionary>(values->validityNotAfter) : nullptr;
  const auto expiresAt = notAfter != nullptr ? date(notAfter->value) : std::nullopt;
  if (!expiresAt) {
    return std::nullopt;
  }
  return ParsedCertificateValues{principal(values->subjectName), principal(values->issuerName),
                                 *expiresAt};
}

std::optional<Date> CertificateValueParser::date(const OptionalCertificateProperty& value) {
  if (const auto* instant = valueAs<Date>(value)) {
    return *instant;
  }
  const auto* seconds = valueAs<double>(value);
  if (seconds == nullptr) {
    return std::nullopt;
  }
  using std::chrono::January;
  constexpr Date referenceDate = std::chrono::sys_days(std::chrono::year(2001) / January / 1);
  // 30,000 years before or after 2001: more than a certificate can express, less than the calendar
  // can represent. The negated comparison also rejects NaN.
  constexpr double limit = 30'000 * 31'556'952.0;
  if (!(std::abs(*seconds) < limit)) {
    return std::nullopt;
  }
  return referenceDate + std::chrono::microseconds(std::llround(*seconds * 1e6));
}

CertificatePrincipal CertificateValueParser::principal(const OptionalCertificateProperty& value) {
  std::map<std::string, std::string> fields;
  collectDistinguishedNameFields(value, fields);
  const auto field = [&fields](const char* attribute) -> std::optional<std::string> {
    const auto found = fields.find(attribute);
    return found == fields.end() ? std::nullopt : std::optional(found->second);
  };
  return {field(commonNameOID), field(organizationOID), field(organizationalUnitOID),
          field(localityOID)};
}

void CertificateValueParser::collectDistinguishedNameFields(
    const OptionalCertificateProperty& value, std::map<std::string, std::string>& fields) {
  collect(value.get(), fields);
}

Date currentDate() { return std::chrono::floor<Date::duration>(std::chrono::system_clock::now()); }

KeychainIdentityLoader::KeychainIdentityLoader(
    std::shared_ptr<const KeychainIdentityQuerying> query, Clock now)
    : query_(std::move(query)), now_(std::move(now)) {}

std::vector<ClientIdentity> KeychainIdentityLoader::loadIdentities() const {
  const auto handles = query_->copyIdentities();
  const Date now = now_();

  std::map<std::string, ClientIdentity> byFingerprint;
  for (const auto& handle : handles) {
    const auto certificate = handle->hasPrivateKey() ? handle->copyCertificate() : std::nullopt;
    auto values = certificate ? CertificateValueParser::parse(*certificate) : std::nullopt;
    if (values && values->expiresAt > now && !certificate->data.empty()) {
      const std::string id = fingerprint(certificate->data);
      byFingerprint.insert_or_assign(
          id, ClientIdentity{id, std::move(values->subject), std::move(values->issuer),
                             values->expiresAt});
    }
  }

  std::vector<ClientIdentity> identities;
  identities.reserve(byFingerprint.size());
  for (auto& [id, identity] : byFingerprint) {
    identities.push_back(std::move(identity));
  }
  // They are in the order of their fingerprints, which a stable sort keeps among equal names.
  std::stable_sort(identities.begin(), identities.end(),
                   [compare = localizedCaseInsensitiveComparison()](const ClientIdentity& left,
                                                                    const ClientIdentity& right) {
                     return std::is_lt(compare(left.displayName(), right.displayName()));
                   });
  return identities;
}

}  // namespace lumaret
