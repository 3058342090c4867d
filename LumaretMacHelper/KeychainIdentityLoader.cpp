// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/KeychainIdentityLoader.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <compare>
#include <iterator>
#include <utility>

namespace lumaret {
namespace {

/// The attributes that are recognised, by object identifier.
constexpr std::array attributes = {std::pair("2.5.4.3", &CertificatePrincipal::commonName),
                                   std::pair("2.5.4.10", &CertificatePrincipal::organization),
                                   std::pair("2.5.4.11", &CertificatePrincipal::organizationalUnit),
                                   std::pair("2.5.4.7", &CertificatePrincipal::locality)};

bool isRecognised(const std::string& label) {
  return std::ranges::any_of(attributes, [&](const auto& entry) { return entry.first == label; });
}

template <typename Type>
const Type* valueAs(const OptionalCertificateProperty& property) {
  return property ? std::get_if<Type>(&property->value) : nullptr;
}

/// Every recognised attribute that is not empty, at any depth, by object identifier; those with the
/// same one are in their order.
void collect(const CertificateProperty* value, std::multimap<std::string, std::string>& found) {
  if (value == nullptr) {
    return;
  }
  if (const auto* elements = std::get_if<CertificatePropertyArray>(&value->value)) {
    for (const CertificateProperty& element : *elements) {
      collect(&element, found);
    }
  } else if (const auto* entry = std::get_if<CertificatePropertyDictionary>(&value->value)) {
    const auto* label = valueAs<std::string>(entry->label);
    const auto* text = valueAs<std::string>(entry->value);
    if (label != nullptr && text != nullptr && !text->empty() && isRecognised(*label)) {
      found.emplace(*label, *text);
    }
    collect(entry->value.get(), found);
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
  collectDistinguishedNameFields(value.get(), fields);
  CertificatePrincipal principal;
  for (const auto& [attribute, field] : attributes) {
    if (const auto found = fields.find(attribute); found != fields.end()) {
      principal.*field = found->second;
    }
  }
  return principal;
}

void CertificateValueParser::collectDistinguishedNameFields(
    const CertificateProperty* value, std::map<std::string, std::string>& fields) {
  std::multimap<std::string, std::string> found;
  collect(value, found);
  fields.merge(found);
}

bool CertificateValueParser::isSelected(const OptionalCertificateProperty& name,
                                        const CertificatePrincipal& filter) {
  std::multimap<std::string, std::string> found;
  collect(name.get(), found);
  return std::ranges::all_of(attributes, [&](const auto& entry) {
    const auto& [attribute, field] = entry;
    const auto& wanted = filter.*field;
    const bool isFirstMeant =
        field == &CertificatePrincipal::commonName || field == &CertificatePrincipal::locality;
    const auto [first, last] = found.equal_range(attribute);
    return !wanted || wanted->empty() ||
           std::any_of(first, isFirstMeant && first != last ? std::next(first) : last,
                       [&](const auto& each) { return each.second == *wanted; });
  });
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
    const auto certificate = handle.hasPrivateKey() ? handle.copyCertificate() : std::nullopt;
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
  // The map sorted them by fingerprint. A stable sort keeps that order among equal names.
  std::stable_sort(identities.begin(), identities.end(),
                   [compare = localizedCaseInsensitiveComparison()](const ClientIdentity& left,
                                                                    const ClientIdentity& right) {
                     return std::is_lt(compare(left.displayName(), right.displayName()));
                   });
  return identities;
}

}  // namespace lumaret
