// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Contracts.hpp"

#include <cstdlib>
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

std::string CertificateSelectorError::message(Kind kind, const Payload& payload) {
  const auto status = [&payload] { return std::to_string(std::get<KeychainStatus>(payload)); };
  switch (kind) {
    case Kind::keychainFailure:
      return "Keychain could not be read (error " + status() + ").";
    case Kind::chromeLaunchFailed:
      return "Google Chrome could not be opened: " + std::get<std::string>(payload);
    case Kind::keychainAuthorizationFailed:
      return "Keychain could not authorize Google Chrome for this certificate (error " + status() +
             "). No Chrome certificate rule was changed.";
    case Kind::certificateHasNoSubject:
      return "This certificate has no subject fields Chrome can match.";
    case Kind::policyEncodingFailed:
      return "The Chrome certificate rule could not be encoded.";
    case Kind::policyWriteFailed:
      return "The Chrome certificate rule could not be saved.";
    case Kind::policyVerificationFailed:
      return "The Chrome certificate rule was saved but could not be verified.";
    case Kind::chromeNotInstalled:
      return "Google Chrome is not installed in /Applications.";
    case Kind::selectedIdentityNotFound:
      return "The selected certificate is no longer available in Keychain. Refresh the list and "
             "select it again.";
    case Kind::selectedIdentityAmbiguous:
      return "Keychain returned more than one identity for the selected certificate. Remove the "
             "duplicate identity and try again.";
    case Kind::selectedIdentityHasNoPrivateKey:
      return "The selected certificate has no usable private key in Keychain. Import its complete "
             "identity and try again.";
    case Kind::chromeKeyAuthorizationUnsupported:
      return "This certificate's private key does not support persistent Chrome authorization. "
             "Smart cards and security tokens may still require their own PIN or confirmation.";
    case Kind::keychainAuthorizationCancelled:
      return "Chrome was not authorized because the Keychain confirmation was cancelled. No Chrome "
             "certificate rule was changed.";
  }
  std::abort();  // No other kind can be built.
}

CertificateSelectorError::CertificateSelectorError(Kind kind, Payload payload)
    : std::runtime_error(message(kind, payload)), kind_(kind), payload_(std::move(payload)) {}

}  // namespace lumaret
