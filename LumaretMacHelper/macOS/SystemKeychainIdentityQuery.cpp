// SPDX-License-Identifier: Apache-2.0
#include <Security/Security.h>

#include <array>
#include <utility>

#include "LumaretMacHelper/PlatformServices.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationReference.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "LumaretMacHelper/macOS/IdentityMatching.hpp"

namespace lumaret {
namespace {

OptionalCertificateProperty optionalProperty(CFTypeRef value);

/// A date that Date cannot represent becomes a value of a type that nothing reads.
CertificateProperty dateProperty(CFAbsoluteTime secondsSinceReferenceDate) {
  const auto number =
      std::make_shared<const CertificateProperty>(CertificateProperty{secondsSinceReferenceDate});
  const auto date = CertificateValueParser::date(number);
  return date ? CertificateProperty{*date} : CertificateProperty{};
}

CertificateProperty property(CFTypeRef value) {
  if (const auto* text = objectAs<CFStringRef>(value, ::CFStringGetTypeID())) {
    auto converted = utf8Text(text);  // Nothing if the string has no UTF-8 form.
    return converted ? CertificateProperty{*std::move(converted)} : CertificateProperty{};
  }
  if (const auto* number = objectAs<CFNumberRef>(value, ::CFNumberGetTypeID())) {
    double seconds = 0;
    // The result is ignored: false only means that the number was rounded to the nearest double.
    ::CFNumberGetValue(number, kCFNumberDoubleType, &seconds);
    return {seconds};
  }
  if (const auto* date = objectAs<CFDateRef>(value, ::CFDateGetTypeID())) {
    return dateProperty(::CFDateGetAbsoluteTime(date));
  }
  if (const auto* array = objectAs<CFArrayRef>(value, ::CFArrayGetTypeID())) {
    CertificatePropertyArray converted;
    for (const CFTypeRef element : elements(array)) {
      converted.push_back(property(element));
    }
    return {std::move(converted)};
  }
  if (const auto* entry = objectAs<CFDictionaryRef>(value, ::CFDictionaryGetTypeID())) {
    return {CertificatePropertyDictionary{
        optionalProperty(::CFDictionaryGetValue(entry, kSecPropertyKeyLabel)),
        optionalProperty(::CFDictionaryGetValue(entry, kSecPropertyKeyValue))}};
  }
  return {};
}

OptionalCertificateProperty optionalProperty(CFTypeRef value) {
  return value == nullptr ? nullptr : std::make_shared<const CertificateProperty>(property(value));
}

/// Nothing if the Security framework cannot read the certificate.
std::optional<CertificateValues> copyCertificateValues(SecCertificateRef certificate) {
  std::array<const void*, 3> oids = {kSecOIDX509V1SubjectName, kSecOIDX509V1IssuerName,
                                     kSecOIDX509V1ValidityNotAfter};
  const auto keys = CoreFoundationReference<CFArrayRef>::adopt(
      ::CFArrayCreate(kCFAllocatorDefault, oids.data(), oids.size(), &kCFTypeArrayCallBacks));
  const auto values = CoreFoundationReference<CFDictionaryRef>::adopt(
      ::SecCertificateCopyValues(certificate, keys.get(), /*error=*/nullptr));
  if (!values) {
    return std::nullopt;
  }
  const auto value = [&values](CFStringRef oid) {
    return optionalProperty(::CFDictionaryGetValue(values.get(), oid));
  };
  return CertificateValues{value(kSecOIDX509V1SubjectName), value(kSecOIDX509V1IssuerName),
                           value(kSecOIDX509V1ValidityNotAfter)};
}

class SystemKeychainIdentity final : public KeychainIdentity {
 public:
  explicit SystemKeychainIdentity(CoreFoundationReference<SecIdentityRef> identity)
      : identity_(std::move(identity)) {}

  [[nodiscard]] bool hasPrivateKey() const override {
    CoreFoundationReference<SecKeyRef> privateKey;
    const OSStatus status = ::SecIdentityCopyPrivateKey(identity_.get(), privateKey.receive());
    return status == errSecSuccess && privateKey;
  }
  [[nodiscard]] std::optional<KeychainCertificate> copyCertificate() const override {
    CoreFoundationReference<SecCertificateRef> certificate;
    const OSStatus status = ::SecIdentityCopyCertificate(identity_.get(), certificate.receive());
    if (status != errSecSuccess || !certificate) {
      return std::nullopt;
    }
    auto values = copyCertificateValues(certificate.get());
    const auto data =
        CoreFoundationReference<CFDataRef>::adopt(::SecCertificateCopyData(certificate.get()));
    return KeychainCertificate{std::move(values), data ? bytes(data.get()) : Bytes()};
  }

 private:
  CoreFoundationReference<SecIdentityRef> identity_;
};

}  // namespace

KeychainIdentityLoader::KeychainIdentityLoader()
    : KeychainIdentityLoader(std::make_shared<SystemKeychainIdentityQuery>()) {}

std::vector<std::unique_ptr<KeychainIdentity>> SystemKeychainIdentityQuery::copyIdentities() const {
  const MatchingIdentities answer = copyMatchingIdentities();
  if (answer.status != errSecSuccess) {
    throw CertificateSelectorError::keychainFailure(answer.status);
  }
  std::vector<std::unique_ptr<KeychainIdentity>> identities;
  for (const auto& identity : answer.identities) {
    identities.push_back(std::make_unique<SystemKeychainIdentity>(identity));
  }
  return identities;
}

}  // namespace lumaret
