// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"

#include <algorithm>
#include <array>

namespace lumaret {
namespace {

/// The user dismissed a Keychain confirmation (errSecUserCanceled).
constexpr KeychainStatus userCanceled = -128;

/// Stands for a failure without a status (errSecInternalComponent).
constexpr KeychainStatus internalComponent = -2070;

/// A key of this kind cannot carry a persistent authorization: errSecUnimplemented,
/// errSecUnsupportedFormat, errSecUnsupportedKeyFormat, errSecUnsupportedKeyUsageMask and
/// errSecUnsupportedKeyAttributeMask. Adjacent numbers mean other things.
constexpr std::array<KeychainStatus, 5> unsupportedStatuses = {-4, -25256, -67734, -67737, -67739};

CertificateSelectorError publicError(const KeychainAuthorizationBackendError& error) {
  const auto status = error.statusCode();
  if (!status || std::ranges::find(unsupportedStatuses, *status) != unsupportedStatuses.end()) {
    return CertificateSelectorError::chromeKeyAuthorizationUnsupported();
  }
  return *status == userCanceled ? CertificateSelectorError::keychainAuthorizationCancelled()
                                 : CertificateSelectorError::keychainAuthorizationFailed(*status);
}

}  // namespace

void KeychainChromePrivateKeyAuthorizer::authorize(const ClientIdentity& identity) const {
  try {
    authorizeOperation_(identity.id);
  } catch (const CertificateSelectorError&) {
    throw;
  } catch (const KeychainAuthorizationBackendError& error) {
    throw publicError(error);
  } catch (...) {
    throw CertificateSelectorError::keychainAuthorizationFailed(internalComponent);
  }
}

}  // namespace lumaret
