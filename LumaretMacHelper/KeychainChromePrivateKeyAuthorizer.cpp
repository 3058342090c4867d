// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"

#include <algorithm>
#include <array>

namespace lumaret {
namespace {

/// A key of this kind cannot carry a persistent authorization: errSecUnimplemented,
/// errSecUnsupportedFormat, errSecUnsupportedKeyFormat, errSecUnsupportedKeyUsageMask and
/// errSecUnsupportedKeyAttributeMask. Adjacent numbers mean other things.
constexpr std::array<KeychainStatus, 5> unsupportedStatuses = {-4, -25256, -67734, -67737, -67739};

}  // namespace

void KeychainChromePrivateKeyAuthorizer::authorize(const ClientIdentity& identity) const {
  try {
    authorizeOperation_(identity.id);
  } catch (const CertificateSelectorError&) {
    throw;
  } catch (const KeychainAuthorizationBackendError& error) {
    throw publicError(error);
  } catch (...) {
    throw CertificateSelectorError::keychainAuthorizationFailed(keychainStatusInternalComponent);
  }
}

CertificateSelectorError KeychainChromePrivateKeyAuthorizer::publicError(
    const KeychainAuthorizationBackendError& error) {
  const auto status = error.statusCode();
  if (!status) {
    return CertificateSelectorError::chromeKeyAuthorizationUnsupported();
  }
  if (*status == keychainStatusUserCanceled) {
    return CertificateSelectorError::keychainAuthorizationCancelled();
  }
  if (std::find(unsupportedStatuses.begin(), unsupportedStatuses.end(), *status) !=
      unsupportedStatuses.end()) {
    return CertificateSelectorError::chromeKeyAuthorizationUnsupported();
  }
  return CertificateSelectorError::keychainAuthorizationFailed(*status);
}

}  // namespace lumaret
