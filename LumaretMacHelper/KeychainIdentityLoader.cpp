// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/KeychainIdentityLoader.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
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

bool comesBefore(const ClientIdentity& left, const ClientIdentity& right,
                 const TextComparison& compare) {
  const auto order = compare(left.displayName(), right.displayName());
  return order != std::weak_ordering::equivalent ? order == std::weak_ordering::less
                                                 : left.id < right.id;
}

}  // namespace

std::optional<ParsedCertificateValues> CertificateValueParser::parse(
    const KeychainCertificate& certificate) {
  const auto values = certificate.copyValues();
  if (!values) {
    return std::nullopt;
  }
  const auto* notAfter = valueAs<CertificatePropertyDictionary>(values->validityNotAfter);
  if (notAfter == nullptr) {
    return std::nullopt;
  }
  const auto expiresAt = date(notAfter->value);
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
    if (!handle->hasPrivateKey()) {
      continue;
    }
    const auto certificate = handle->copyCertificate();
    if (!certificate) {
      continue;
    }
    auto values = CertificateValueParser::parse(*certificate);
    if (!values || values->expiresAt <= now) {
      continue;
    }
    const Bytes data = certificate->data();
    if (data.empty()) {
      continue;
    }
    const std::string id = fingerprint(data);
    byFingerprint.insert_or_assign(
        id, ClientIdentity{id, std::move(values->subject), std::move(values->issuer),
                           values->expiresAt});
  }

  std::vector<ClientIdentity> identities;
  identities.reserve(byFingerprint.size());
  for (auto& [id, identity] : byFingerprint) {
    identities.push_back(std::move(identity));
  }
  std::stable_sort(identities.begin(), identities.end(),
                   [compare = localizedCaseInsensitiveComparison()](const ClientIdentity& left,
                                                                    const ClientIdentity& right) {
                     return comesBefore(left, right, compare);
                   });
  return identities;
}

}  // namespace lumaret
