// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/macOS/CertificateValues.hpp"

#include <array>
#include <memory>
#include <string>
#include <utility>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationReference.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"

namespace lumaret {
namespace {

OptionalCertificateProperty optionalProperty(CFTypeRef value);

CertificateProperty dateProperty(CFAbsoluteTime secondsSinceReferenceDate) {
  const auto number =
      std::make_shared<const CertificateProperty>(CertificateProperty{secondsSinceReferenceDate});
  const auto date = CertificateValueParser::date(number);
  return date ? CertificateProperty{*date} : CertificateProperty{};
}

CertificateProperty property(CFTypeRef value) {
  if (const auto* text = objectAs<CFStringRef>(value, ::CFStringGetTypeID())) {
    auto converted = utf8Text(text);
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

}  // namespace

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

}  // namespace lumaret
