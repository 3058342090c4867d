// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret {

/// One entry of a private key's access list.
template <typename TrustedApplication>
struct ChromeKeychainACLContents {
  /// The applications that may use the key without confirmation. If absent, any application may; if
  /// empty, none may.
  std::optional<std::vector<TrustedApplication>> trustedApplications;
  std::string description;
  /// When the Keychain asks for its passphrase before the key is used
  /// (`SecKeychainPromptSelector`).
  std::uint16_t promptSelector = 0;

  bool operator==(const ChromeKeychainACLContents&) const = default;
};

/// Why a backend failed.
class KeychainAuthorizationBackendError : public DescribedError {
 public:
  /// A call failed with this status, or returned nothing or an object of another type.
  static KeychainAuthorizationBackendError status(KeychainStatus status) { return {status}; }
  /// A key of this kind has no access list that can be read or changed.
  static KeychainAuthorizationBackendError unsupported() { return {std::nullopt}; }

  /// Nothing for `unsupported`.
  [[nodiscard]] std::optional<KeychainStatus> statusCode() const noexcept { return status_; }

 private:
  KeychainAuthorizationBackendError(std::optional<KeychainStatus> status)
      : DescribedError(status ? "status " + std::to_string(*status) : "unsupported"),
        status_(status) {}

  std::optional<KeychainStatus> status_;
};

/// A Keychain with access lists. Handles are shared references, cheap to copy; the last copy
/// releases the object. Every operation may throw. The platforms' backends report a failed call as
/// a KeychainAuthorizationBackendError.
template <typename Backend>
// Each version of clang-format indents this differently.
// clang-format off
concept ChromeKeychainAuthorizationBackend =
    requires(const Backend& backend, const typename Backend::Identity& identity,
             const typename Backend::PrivateKey& privateKey, const typename Backend::Access& access,
             const typename Backend::ACL& acl,
             const ChromeKeychainACLContents<typename Backend::TrustedApplication>& contents,
             const typename Backend::TrustedApplication& application) {
  // In the Keychain's order; empty if the Keychain is empty.
  { backend.copyIdentities() } -> std::same_as<std::vector<typename Backend::Identity>>;
  // The certificate's DER bytes.
  { backend.certificateData(identity) } -> std::same_as<Bytes>;
  // Nothing if the identity has no private key.
  { backend.copyPrivateKey(identity) } -> std::same_as<std::optional<typename Backend::PrivateKey>>;
  { backend.copyAccess(privateKey) } -> std::same_as<typename Backend::Access>;
  // The entries that authorize signing or any operation, in the access list's order.
  { backend.copySigningACLs(access) } -> std::same_as<std::vector<typename Backend::ACL>>;
  { backend.copyContents(acl) }
      -> std::same_as<ChromeKeychainACLContents<typename Backend::TrustedApplication>>;
  // Edits the access object in memory.
  { backend.setContents(contents, acl) } -> std::same_as<void>;
  // Stores the access object on the key, entry by entry: if one fails, those before it are stored.
  { backend.setAccess(access, privateKey) } -> std::same_as<void>;
  { backend.chromeTrustedApplication() } -> std::same_as<typename Backend::TrustedApplication>;
  // What tells one application from another: on macOS its path, not its signature.
  { backend.identityData(application) } -> std::same_as<Bytes>;
};
// clang-format on

/// Adds Google Chrome to the signing entries of one private key's access list.
template <ChromeKeychainAuthorizationBackend Backend>
class ChromeKeychainAuthorizationWorkflow {
 public:
  explicit ChromeKeychainAuthorizationWorkflow(Backend backend) : backend_(std::move(backend)) {}

  /// Writes nothing if Chrome is in a signing entry or every application may sign. Otherwise stores
  /// the access list with one call, as the last step: a failure before that call leaves the key as
  /// it was. A failure of the call itself may leave Chrome in some of the entries. Throws
  /// CertificateSelectorError (not found, ambiguous, no private key, unsupported), or what the
  /// backend throws.
  void authorize(const std::string& fingerprint) const {
    auto identities = backend_.copyIdentities();
    std::erase_if(identities, [&](const typename Backend::Identity& identity) {
      return lumaret::fingerprint(backend_.certificateData(identity)) != fingerprint;
    });
    if (identities.empty()) {
      throw CertificateSelectorError::selectedIdentityNotFound();
    }
    // An identity that is in the Keychain twice has two access lists. Nothing tells which of them
    // Chrome will use.
    if (identities.size() > 1) {
      throw CertificateSelectorError::selectedIdentityAmbiguous();
    }
    const auto privateKey = backend_.copyPrivateKey(identities.front());
    if (!privateKey) {
      throw CertificateSelectorError::selectedIdentityHasNoPrivateKey();
    }
    const auto access = backend_.copyAccess(*privateKey);
    const auto entries = backend_.copySigningACLs(access);
    if (entries.empty()) {
      throw CertificateSelectorError::chromeKeyAuthorizationUnsupported();
    }

    std::vector<Contents> contents;
    for (const auto& entry : entries) {
      contents.push_back(backend_.copyContents(entry));
      if (!contents.back().trustedApplications) {
        return;  // Any application may sign, Chrome included.
      }
    }

    const auto chrome = backend_.chromeTrustedApplication();
    const Bytes chromeData = backend_.identityData(chrome);
    const auto isChrome = [&](const auto& application) {
      return backend_.identityData(application) == chromeData;
    };
    if (std::ranges::any_of(contents, [&](const Contents& entry) {
          return std::ranges::any_of(*entry.trustedApplications, isChrome);
        })) {
      return;  // One signing entry is enough; the user's other entries stay as they are.
    }

    for (std::size_t index = 0; index < entries.size(); ++index) {
      contents[index].trustedApplications->push_back(chrome);
      backend_.setContents(contents[index], entries[index]);
    }
    backend_.setAccess(access, *privateKey);
  }

 private:
  using Contents = ChromeKeychainACLContents<typename Backend::TrustedApplication>;

  Backend backend_;
};

class KeychainChromePrivateKeyAuthorizer final : public ChromePrivateKeyAuthorizing {
 public:
  /// Takes a fingerprint. Throws unless Chrome may sign with that identity's key.
  using AuthorizeOperation = std::function<void(const std::string&)>;

  /// Uses the platform's Keychain.
  KeychainChromePrivateKeyAuthorizer();
  explicit KeychainChromePrivateKeyAuthorizer(AuthorizeOperation authorizeOperation)
      : authorizeOperation_(std::move(authorizeOperation)) {}
  template <ChromeKeychainAuthorizationBackend Backend>
  explicit KeychainChromePrivateKeyAuthorizer(const Backend& backend)
      : authorizeOperation_([backend](const std::string& fingerprint) {
          ChromeKeychainAuthorizationWorkflow<Backend>(backend).authorize(fingerprint);
        }) {}

  void authorize(const ClientIdentity& identity) const override;

 private:
  AuthorizeOperation authorizeOperation_;
};

}  // namespace lumaret
