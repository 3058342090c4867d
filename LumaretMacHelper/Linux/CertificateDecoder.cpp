// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/CertificateDecoder.hpp"

#include <cert.h>
#include <secasn1.h>
#include <secder.h>
#include <secitem.h>
#include <unicode/ustring.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>

namespace lumaret {
namespace {

using Arena =
    std::unique_ptr<PLArenaPool, decltype([](auto* arena) { PORT_FreeArena(arena, PR_FALSE); })>;
using Item =
    std::unique_ptr<SECItem, decltype([](auto* item) { SECITEM_FreeItem(item, PR_TRUE); })>;

OptionalCertificateProperty property(CertificateProperty property) {
  return std::make_shared<const CertificateProperty>(std::move(property));
}

OptionalCertificateProperty entry(std::string label, CertificateProperty value) {
  return property(
      {CertificatePropertyDictionary{property({std::move(label)}), property(std::move(value))}});
}

bool isUTF8(const std::string& text) {
  UErrorCode status = U_ZERO_ERROR;
  int32_t length = 0;
  // Only measures the result, but looks at every byte for that.
  u_strFromUTF8(nullptr, 0, &length, text.data(), static_cast<int32_t>(text.size()), &status);
  return status != U_INVALID_CHAR_FOUND;
}

/// The dotted notation of an attribute of X.520 (2.5.4.n with n below 128). The rules match no
/// others, whose labels are empty.
std::string dottedText(const SECItem& type) {
  return type.len == 3 && type.data[0] == 0x55 && type.data[1] == 0x04 && type.data[2] < 0x80
             ? "2.5.4." + std::to_string(type.data[2])
             : std::string();
}

/// NSS converts the wide string types to UTF-8 and passes the bytes of all others on unchanged.
std::optional<std::string> attributeText(const SECItem& value) {
  const Item decoded(CERT_DecodeAVAValue(&value));
  if (!decoded) {
    return std::nullopt;
  }
  std::string text(reinterpret_cast<const char*>(decoded->data), decoded->len);
  return isUTF8(text) ? std::optional(std::move(text)) : std::nullopt;
}

OptionalCertificateProperty nameSection(std::string label, const CERTName& name) {
  CertificatePropertyArray attributes;
  for (CERTRDN** rdn = name.rdns; rdn != nullptr && *rdn != nullptr; ++rdn) {
    for (CERTAVA** ava = (*rdn)->avas; ava != nullptr && *ava != nullptr; ++ava) {
      if (auto text = attributeText((*ava)->value)) {
        attributes.push_back(*entry(dottedText((*ava)->type), {*std::move(text)}));
      }
    }
  }
  return entry(std::move(label), {std::move(attributes)});
}

}  // namespace

std::optional<CertificateValues> decodeCertificate(std::span<const std::uint8_t> certificate) {
  const Arena arena(PORT_NewArena(DER_DEFAULT_CHUNKSIZE));
  const SECItem der = {siDERCertBuffer, const_cast<unsigned char*>(certificate.data()),
                       static_cast<unsigned>(certificate.size())};
  // Decoded directly: NSS would enter a CERTCertificate into its cache and look up the issuer.
  CERTCertificate decoded{};
  if (!arena || SEC_QuickDERDecodeItem(arena.get(), &decoded, SEC_SignedCertificateTemplate,
                                       &der) != SECSuccess) {
    return std::nullopt;
  }

  CertificateValues values;
  values.subjectName = nameSection("Subject Name", decoded.subject);
  values.issuerName = nameSection("Issuer Name", decoded.issuer);
  PRTime notAfter = 0;
  if (DER_DecodeTimeChoice(&notAfter, &decoded.validity.notAfter) == SECSuccess) {
    values.validityNotAfter = entry("Not Valid After", {Date(std::chrono::microseconds(notAfter))});
  }
  return values;
}

}  // namespace lumaret
