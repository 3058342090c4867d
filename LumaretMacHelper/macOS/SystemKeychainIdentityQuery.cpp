// SPDX-License-Identifier: Apache-2.0
#include <Security/Security.h>

#include <utility>

#include "LumaretMacHelper/PlatformServices.hpp"
#include "LumaretMacHelper/macOS/CertificateValues.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationReference.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "LumaretMacHelper/macOS/IdentityMatching.hpp"

namespace lumaret {
namespace {

class SystemKeychainCertificate final : public KeychainCertificate {
 public:
  explicit SystemKeychainCertificate(CoreFoundationReference<SecCertificateRef> certificate)
      : certificate_(std::move(certificate)) {}

  [[nodiscard]] std::optional<CertificateValues> copyValues() const override {
    return copyCertificateValues(certificate_.get());
  }
  [[nodiscard]] Bytes data() const override {
    const auto data =
        CoreFoundationReference<CFDataRef>::adopt(::SecCertificateCopyData(certificate_.get()));
    return data ? bytes(data.get()) : Bytes();
  }

 private:
  CoreFoundationReference<SecCertificateRef> certificate_;
};

class SystemKeychainIdentity final : public KeychainIdentity {
 public:
  explicit SystemKeychainIdentity(CoreFoundationReference<SecIdentityRef> identity)
      : identity_(std::move(identity)) {}

  [[nodiscard]] bool hasPrivateKey() const override {
    CoreFoundationReference<SecKeyRef> privateKey;
    const OSStatus status = ::SecIdentityCopyPrivateKey(identity_.get(), privateKey.receive());
    return status == errSecSuccess && privateKey;
  }
  [[nodiscard]] std::unique_ptr<KeychainCertificate> copyCertificate() const override {
    CoreFoundationReference<SecCertificateRef> certificate;
    const OSStatus status = ::SecIdentityCopyCertificate(identity_.get(), certificate.receive());
    if (status != errSecSuccess || !certificate) {
      return nullptr;
    }
    return std::make_unique<SystemKeychainCertificate>(std::move(certificate));
  }

 private:
  CoreFoundationReference<SecIdentityRef> identity_;
};

std::unique_ptr<KeychainIdentity> handle(SecIdentityRef borrowed) {
  return std::make_unique<SystemKeychainIdentity>(
      CoreFoundationReference<SecIdentityRef>::retain(borrowed));
}

}  // namespace

KeychainIdentityLoader::KeychainIdentityLoader()
    : KeychainIdentityLoader(std::make_shared<SystemKeychainIdentityQuery>()) {}

std::vector<std::unique_ptr<KeychainIdentity>> SystemKeychainIdentityQuery::copyIdentities() const {
  const MatchingIdentities answer = copyMatchingIdentities();
  std::vector<std::unique_ptr<KeychainIdentity>> identities;
  if (answer.status == errSecItemNotFound) {
    return identities;
  }
  if (answer.status != errSecSuccess) {
    throw CertificateSelectorError::keychainFailure(answer.status);
  }
  if (!answer.result) {
    return identities;
  }

  const CFTypeID identityType = ::SecIdentityGetTypeID();
  if (auto* identity = objectAs<SecIdentityRef>(answer.result.get(), identityType)) {
    identities.push_back(handle(identity));
  } else if (const auto* array = objectAs<CFArrayRef>(answer.result.get(), ::CFArrayGetTypeID())) {
    for (const CFTypeRef element : elements(array)) {
      if (auto* listed = objectAs<SecIdentityRef>(element, identityType)) {
        identities.push_back(handle(listed));
      }
    }
  } else {
    throw CertificateSelectorError::keychainFailure(keychainStatusInternalComponent);
  }
  return identities;
}

}  // namespace lumaret
