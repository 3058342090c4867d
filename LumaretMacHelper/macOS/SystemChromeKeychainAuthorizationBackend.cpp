// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/macOS/SystemChromeKeychainAuthorizationBackend.hpp"

#include <algorithm>
#include <utility>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "LumaretMacHelper/macOS/IdentityMatching.hpp"

// The access lists of the file-based Keychain have been deprecated since macOS 10.10. Nothing has
// replaced them for existing keys.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace lumaret {
namespace {

using Backend = SystemChromeKeychainAuthorizationBackend;

/// The bundle. An access list stores its path and a requirement on its code signature. The Keychain
/// checks the requirement. SecTrustedApplicationCopyData returns only the path.
constexpr const char* chromeApplication = "/Applications/Google Chrome.app";

void requireSuccess(OSStatus status) {
  if (status != errSecSuccess) {
    throw KeychainAuthorizationBackendError::status(status);
  }
}

void requireLegacyAccessSuccess(OSStatus status) {
  if (status == errSecInvalidItemRef || status == errSecNoSuchClass) {
    throw KeychainAuthorizationBackendError::unsupported();
  }
  requireSuccess(status);
}

/// Throws for a null object.
template <typename Object>
Object required(Object object) {
  if (!object) {
    throw KeychainAuthorizationBackendError::status(errSecInternalComponent);
  }
  return object;
}

/// The array's elements. Throws if one of them is of another type.
template <typename Object>
std::vector<CoreFoundationReference<Object>> retainedElements(CFArrayRef array, CFTypeID type) {
  std::vector<CoreFoundationReference<Object>> retained;
  for (const CFTypeRef element : elements(array)) {
    retained.push_back(
        CoreFoundationReference<Object>::retain(required(objectAs<Object>(element, type))));
  }
  return retained;
}

SecKeychainItemRef keychainItem(const Backend::PrivateKey& privateKey) {
  return reinterpret_cast<SecKeychainItemRef>(privateKey.get());
}

/// Throws `unsupported` for a key that is not an item of a file-based keychain, such as a smart
/// card's. The access-list calls must not see such a key: since macOS 15 they take it for a null
/// object and crash. The call here is safe with it on every macOS.
void requireKeychainItem(const Backend::PrivateKey& privateKey) {
  CoreFoundationReference<SecKeychainRef> keychain;
  const OSStatus status =
      ::SecKeychainItemCopyKeychain(keychainItem(privateKey), keychain.receive());
  if (status == errSecInvalidItemRef || status == errSecNoSuchKeychain ||
      status == errSecNoAccessForItem) {
    throw KeychainAuthorizationBackendError::unsupported();
  }
  requireSuccess(status);
  required(std::move(keychain));
}

bool authorizesSigning(SecACLRef acl) {
  const auto tags =
      required(CoreFoundationReference<CFArrayRef>::adopt(::SecACLCopyAuthorizations(acl)));
  return std::ranges::any_of(elements(tags.get()), [](CFTypeRef tag) {
    return ::CFEqual(tag, kSecACLAuthorizationSign) != 0 ||
           ::CFEqual(tag, kSecACLAuthorizationAny) != 0;
  });
}

}  // namespace

KeychainChromePrivateKeyAuthorizer::KeychainChromePrivateKeyAuthorizer()
    : KeychainChromePrivateKeyAuthorizer(SystemChromeKeychainAuthorizationBackend()) {}

std::vector<Backend::Identity> Backend::copyIdentities() const {
  const MatchingIdentities answer = copyMatchingIdentities();
  if (answer.status == errSecItemNotFound) {
    return {};
  }
  requireSuccess(answer.status);
  required(answer.result.get());

  const CFTypeID identityType = ::SecIdentityGetTypeID();
  if (auto* identity = objectAs<SecIdentityRef>(answer.result.get(), identityType)) {
    return {Identity::retain(identity)};
  }
  const auto* array = required(objectAs<CFArrayRef>(answer.result.get(), ::CFArrayGetTypeID()));
  return retainedElements<SecIdentityRef>(array, identityType);
}

Bytes Backend::certificateData(const Identity& identity) const {
  CoreFoundationReference<SecCertificateRef> certificate;
  requireSuccess(::SecIdentityCopyCertificate(identity.get(), certificate.receive()));
  const auto data = CoreFoundationReference<CFDataRef>::adopt(
      ::SecCertificateCopyData(required(certificate.get())));
  return bytes(required(data.get()));
}

std::optional<Backend::PrivateKey> Backend::copyPrivateKey(const Identity& identity) const {
  PrivateKey privateKey;
  const OSStatus status = ::SecIdentityCopyPrivateKey(identity.get(), privateKey.receive());
  if (status == errSecItemNotFound) {
    return std::nullopt;
  }
  requireSuccess(status);
  return privateKey ? std::optional(std::move(privateKey)) : std::nullopt;
}

Backend::Access Backend::copyAccess(const PrivateKey& privateKey) const {
  requireKeychainItem(privateKey);
  Access access;
  requireLegacyAccessSuccess(
      ::SecKeychainItemCopyAccess(keychainItem(privateKey), access.receive()));
  return required(std::move(access));
}

std::vector<Backend::ACL> Backend::copySigningACLs(const Access& access) const {
  CoreFoundationReference<CFArrayRef> list;
  requireLegacyAccessSuccess(::SecAccessCopyACLList(access.get(), list.receive()));

  std::vector<ACL> signing;
  for (const CFTypeRef element : elements(required(list.get()))) {
    auto* acl = required(objectAs<SecACLRef>(element, ::SecACLGetTypeID()));
    if (authorizesSigning(acl)) {
      signing.push_back(ACL::retain(acl));
    }
  }
  return signing;
}

ChromeKeychainACLContents<Backend::TrustedApplication> Backend::copyContents(const ACL& acl) const {
  CoreFoundationReference<CFArrayRef> applications;
  CoreFoundationReference<CFStringRef> description;
  SecKeychainPromptSelector promptSelector = 0;
  requireLegacyAccessSuccess(::SecACLCopyContents(acl.get(), applications.receive(),
                                                  description.receive(), &promptSelector));

  ChromeKeychainACLContents<TrustedApplication> contents;
  // A description without a UTF-8 form could not be stored again unchanged, so this fails.
  contents.description = *required(utf8Text(required(description.get())));
  contents.promptSelector = promptSelector;
  if (applications) {
    contents.trustedApplications = retainedElements<SecTrustedApplicationRef>(
        applications.get(), ::SecTrustedApplicationGetTypeID());
  }
  return contents;
}

void Backend::setContents(const ChromeKeychainACLContents<TrustedApplication>& contents,
                          const ACL& acl) const {
  CoreFoundationReference<CFArrayRef> applications;
  if (contents.trustedApplications) {
    applications = coreFoundationArray(*contents.trustedApplications);
  }
  requireLegacyAccessSuccess(::SecACLSetContents(acl.get(), applications.get(),
                                                 coreFoundationText(contents.description).get(),
                                                 contents.promptSelector));
}

void Backend::setAccess(const Access& access, const PrivateKey& privateKey) const {
  requireLegacyAccessSuccess(::SecKeychainItemSetAccess(keychainItem(privateKey), access.get()));
}

Backend::TrustedApplication Backend::chromeTrustedApplication() const {
  TrustedApplication chrome;
  requireSuccess(::SecTrustedApplicationCreateFromPath(chromeApplication, chrome.receive()));
  return required(std::move(chrome));
}

Bytes Backend::identityData(const TrustedApplication& application) const {
  CoreFoundationReference<CFDataRef> data;
  requireSuccess(::SecTrustedApplicationCopyData(application.get(), data.receive()));
  return bytes(required(data.get()));
}

}  // namespace lumaret
