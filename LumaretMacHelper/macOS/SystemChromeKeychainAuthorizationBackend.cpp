// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/macOS/SystemChromeKeychainAuthorizationBackend.hpp"

#include <algorithm>
#include <utility>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "LumaretMacHelper/macOS/IdentityMatching.hpp"

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

SecKeychainItemRef keychainItem(const Backend::PrivateKey& privateKey) {
  return reinterpret_cast<SecKeychainItemRef>(privateKey.get());
}

}  // namespace

KeychainChromePrivateKeyAuthorizer::KeychainChromePrivateKeyAuthorizer()
    : KeychainChromePrivateKeyAuthorizer(SystemChromeKeychainAuthorizationBackend()) {}

std::vector<Backend::Identity> Backend::copyIdentities() const {
  MatchingIdentities answer = copyMatchingIdentities();
  requireSuccess(answer.hasOnlyIdentities ? answer.status : errSecInternalComponent);
  return std::move(answer.identities);
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

// The access lists of the file-based Keychain have been deprecated since macOS 10.10. Nothing has
// replaced them for existing keys.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

Backend::Access Backend::copyAccess(const PrivateKey& privateKey) const {
  // The access-list calls must see only keys of a file-based keychain: since macOS 15 they take any
  // other, such as a smart card's, for a null object and crash. This call is safe with every key.
  // Up to macOS 14 it costs more for such a key: it exports the key within this process, if the key
  // allows that, or else searches all identities for one with the same public key. (Apple's
  // Security 61901, SecBridge.h; 60420 and 61123, SecKey.cpp, KeyItem::fromSecKeyRef.)
  CoreFoundationReference<SecKeychainRef> keychain;
  const OSStatus status =
      ::SecKeychainItemCopyKeychain(keychainItem(privateKey), keychain.receive());
  if (status == errSecInvalidItemRef || status == errSecNoSuchKeychain) {
    throw KeychainAuthorizationBackendError::unsupported();
  }
  requireSuccess(status);
  required(keychain.get());

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
    const auto tags =
        required(CoreFoundationReference<CFArrayRef>::adopt(::SecACLCopyAuthorizations(acl)));
    if (std::ranges::any_of(elements(tags.get()), [](CFTypeRef tag) {
          return ::CFEqual(tag, kSecACLAuthorizationSign) != 0 ||
                 ::CFEqual(tag, kSecACLAuthorizationAny) != 0;
        })) {
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
    auto& trusted = contents.trustedApplications.emplace();
    for (const CFTypeRef element : elements(applications.get())) {
      trusted.push_back(TrustedApplication::retain(required(
          objectAs<SecTrustedApplicationRef>(element, ::SecTrustedApplicationGetTypeID()))));
    }
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

#pragma GCC diagnostic pop

}  // namespace lumaret
