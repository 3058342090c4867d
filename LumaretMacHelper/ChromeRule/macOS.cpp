// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <memory>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/ChromeRule/ChromeRule.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "LumaretMacHelper/macOS/SystemChromeKeychainAuthorizationBackend.hpp"

namespace lumaret {
namespace {

/// Edits a key's access list as `activate` does, but does not store it.
struct Rehearsal : SystemChromeKeychainAuthorizationBackend {
  std::shared_ptr<bool> isChanged = std::make_shared<bool>(false);

  void setAccess(const Access& /*access*/, const PrivateKey& /*privateKey*/) const {
    *isChanged = true;
  }
};

/// As Chrome decides it (net/ssl/client_cert_store_mac.cc): an extension that is missing allows
/// everything.
bool isForClients(SecCertificateRef certificate) {
  std::array<const void*, 2> oids = {kSecOIDKeyUsage, kSecOIDExtendedKeyUsage};
  const auto keys = CoreFoundationReference<CFArrayRef>::adopt(
      ::CFArrayCreate(kCFAllocatorDefault, oids.data(), oids.size(), &kCFTypeArrayCallBacks));
  const auto values = CoreFoundationReference<CFDictionaryRef>::adopt(
      ::SecCertificateCopyValues(certificate, keys.get(), /*error=*/nullptr));
  const auto value = [&](CFStringRef oid) -> CFTypeRef {
    const auto* entry = values
                            ? objectAs<CFDictionaryRef>(::CFDictionaryGetValue(values.get(), oid),
                                                        ::CFDictionaryGetTypeID())
                            : nullptr;
    return entry != nullptr ? ::CFDictionaryGetValue(entry, kSecPropertyKeyValue) : nullptr;
  };
  double usage = 0;
  if (const auto* number = objectAs<CFNumberRef>(value(kSecOIDKeyUsage), ::CFNumberGetTypeID())) {
    ::CFNumberGetValue(number, kCFNumberDoubleType, &usage);
  }
  if (usage != 0 && (static_cast<std::int64_t>(usage) & kSecKeyUsageDigitalSignature) == 0) {
    return false;
  }
  const Bytes any = {0x55, 0x1d, 0x25, 0x00};
  const Bytes clientAuthentication = {0x2b, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x02};
  const auto* purposes = objectAs<CFArrayRef>(value(kSecOIDExtendedKeyUsage), ::CFArrayGetTypeID());
  return purposes == nullptr || std::ranges::any_of(elements(purposes), [&](CFTypeRef element) {
           const auto* oid = objectAs<CFDataRef>(element, ::CFDataGetTypeID());
           return oid != nullptr && (bytes(oid) == any || bytes(oid) == clientAuthentication);
         });
}

}  // namespace

std::function<bool(const Bytes&)> offerTest() {
  return [](const Bytes& certificate) {
    const auto data = CoreFoundationReference<CFDataRef>::adopt(::CFDataCreate(
        kCFAllocatorDefault, certificate.data(), static_cast<CFIndex>(certificate.size())));
    const auto decoded = CoreFoundationReference<SecCertificateRef>::adopt(
        ::SecCertificateCreateWithData(kCFAllocatorDefault, data.get()));
    return decoded && isForClients(decoded.get());
  };
}

bool rehearseAuthorization(const ClientIdentity& identity) {
  const Rehearsal rehearsal;
  KeychainChromePrivateKeyAuthorizer(rehearsal).authorize(identity);
  return *rehearsal.isChanged;
}

std::vector<Finding> platformFindings() { return {}; }

PlatformTexts platformTexts() {
  return {.browser = "Google Chrome",
          .database = "",
          .missingDatabase = "",
          .unreadableDatabase = "Unlock it.",
          .missingCertificate = "Open its file, and add it with its key to the login keychain.",
          .guardedKey = "Have it in the login keychain, once.",
          .unreadableRules = std::string("defaults delete ") + chromeIdentifier + " " + rulesPolicy,
          .overridingRules = "Ask whoever manages this Mac."};
}

}  // namespace lumaret
