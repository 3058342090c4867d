// SPDX-License-Identifier: Apache-2.0
#include <Security/Security.h>

#include <array>
#include <utility>

#include "LumaretMacHelper/PlatformServices.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "LumaretMacHelper/macOS/IdentityMatching.hpp"

namespace lumaret {
namespace {

OptionalCertificateProperty optionalProperty(CFTypeRef value);

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
    return {::CFDateGetAbsoluteTime(date)};  // The same instant as a number.
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

bool hasPrivateKey(SecIdentityRef identity) {
  CoreFoundationReference<SecKeyRef> privateKey;
  const OSStatus status = ::SecIdentityCopyPrivateKey(identity, privateKey.receive());
  return status == errSecSuccess && privateKey;
}

std::optional<KeychainCertificate> copyCertificate(SecIdentityRef identity) {
  CoreFoundationReference<SecCertificateRef> certificate;
  const OSStatus status = ::SecIdentityCopyCertificate(identity, certificate.receive());
  if (status != errSecSuccess || !certificate) {
    return std::nullopt;
  }
  KeychainCertificate copied;
  std::array<const void*, 3> oids = {kSecOIDX509V1SubjectName, kSecOIDX509V1IssuerName,
                                     kSecOIDX509V1ValidityNotAfter};
  const auto keys = CoreFoundationReference<CFArrayRef>::adopt(
      ::CFArrayCreate(kCFAllocatorDefault, oids.data(), oids.size(), &kCFTypeArrayCallBacks));
  if (const auto values = CoreFoundationReference<CFDictionaryRef>::adopt(
          ::SecCertificateCopyValues(certificate.get(), keys.get(), /*error=*/nullptr))) {
    const auto value = [&values](CFStringRef oid) {
      return optionalProperty(::CFDictionaryGetValue(values.get(), oid));
    };
    copied.values = {value(kSecOIDX509V1SubjectName), value(kSecOIDX509V1IssuerName),
                     value(kSecOIDX509V1ValidityNotAfter)};
  }
  if (const auto data =
          CoreFoundationReference<CFDataRef>::adopt(::SecCertificateCopyData(certificate.get()))) {
    copied.data = bytes(data.get());
  }
  return copied;
}

}  // namespace

KeychainIdentityLoader::KeychainIdentityLoader()
    : KeychainIdentityLoader(std::make_shared<SystemKeychainIdentityQuery>()) {}

std::vector<KeychainIdentity> SystemKeychainIdentityQuery::copyIdentities() const {
  const MatchingIdentities answer = copyMatchingIdentities();
  if (answer.status != errSecSuccess) {
    throw CertificateSelectorError::keychainFailure(answer.status);
  }
  std::vector<KeychainIdentity> identities;
  for (const auto& identity : answer.identities) {
    identities.push_back({[identity] { return hasPrivateKey(identity.get()); },
                          [identity] { return copyCertificate(identity.get()); }});
  }
  return identities;
}

}  // namespace lumaret
