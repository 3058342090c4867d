#include "Contracts.hpp"

#include <utility>

namespace lumaret {

std::map<std::string, std::string> CertificatePrincipal::chromeFilterFields() const {
  std::map<std::string, std::string> fields;
  const auto keep = [&fields](const char* key, const std::optional<std::string>& value) {
    if (value && !value->empty()) {
      fields.emplace(key, *value);
    }
  };
  keep("CN", commonName);
  keep("L", locality);
  keep("O", organization);
  keep("OU", organizationalUnit);
  return fields;
}

std::string ClientIdentity::displayName() const {
  return subject.commonName.value_or("Unnamed certificate");
}

CertificateSelectorError CertificateSelectorError::keychainFailure(KeychainStatus status) {
  return {Kind::keychainFailure,
          "Keychain could not be read (error " + std::to_string(status) + ").", status};
}

CertificateSelectorError CertificateSelectorError::chromeLaunchFailed(const std::string& text) {
  return {Kind::chromeLaunchFailed, "Google Chrome could not be opened: " + text, text};
}

CertificateSelectorError CertificateSelectorError::keychainAuthorizationFailed(
    KeychainStatus status) {
  return {Kind::keychainAuthorizationFailed,
          "Keychain could not authorize Google Chrome for this certificate (error " +
              std::to_string(status) + "). No Chrome certificate rule was changed.",
          status};
}

CertificateSelectorError CertificateSelectorError::certificateHasNoSubject() {
  return {Kind::certificateHasNoSubject,
          "This certificate has no subject fields Chrome can match."};
}

CertificateSelectorError CertificateSelectorError::policyEncodingFailed() {
  return {Kind::policyEncodingFailed, "The Chrome certificate rule could not be encoded."};
}

CertificateSelectorError CertificateSelectorError::policyWriteFailed() {
  return {Kind::policyWriteFailed, "The Chrome certificate rule could not be saved."};
}

CertificateSelectorError CertificateSelectorError::policyVerificationFailed() {
  return {Kind::policyVerificationFailed,
          "The Chrome certificate rule was saved but could not be verified."};
}

CertificateSelectorError CertificateSelectorError::chromeNotInstalled() {
  return {Kind::chromeNotInstalled, "Google Chrome is not installed in /Applications."};
}

CertificateSelectorError CertificateSelectorError::selectedIdentityNotFound() {
  return {Kind::selectedIdentityNotFound,
          "The selected certificate is no longer available in Keychain. Refresh the list and "
          "select it again."};
}

CertificateSelectorError CertificateSelectorError::selectedIdentityAmbiguous() {
  return {Kind::selectedIdentityAmbiguous,
          "Keychain returned more than one identity for the selected certificate. Remove the "
          "duplicate identity and try again."};
}

CertificateSelectorError CertificateSelectorError::selectedIdentityHasNoPrivateKey() {
  return {Kind::selectedIdentityHasNoPrivateKey,
          "The selected certificate has no usable private key in Keychain. Import its complete "
          "identity and try again."};
}

CertificateSelectorError CertificateSelectorError::chromeKeyAuthorizationUnsupported() {
  return {Kind::chromeKeyAuthorizationUnsupported,
          "This certificate's private key does not support persistent Chrome authorization. Smart "
          "cards and security tokens may still require their own PIN or confirmation."};
}

CertificateSelectorError CertificateSelectorError::keychainAuthorizationCancelled() {
  return {Kind::keychainAuthorizationCancelled,
          "Chrome was not authorized because the Keychain confirmation was cancelled. No Chrome "
          "certificate rule was changed."};
}

}  // namespace lumaret
