// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <optional>
#include <string>

#include "LumaretMacHelper/Fingerprint.hpp"
#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"
#include "Tests/Conformance/ConformanceCertificate.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests::conformance {

/// How a private key is authorized for Chrome. IdentityConformance describes a `Keychain`.
template <typename Keychain>
class AuthorizationConformance : public testing::Test {
 protected:
  static std::optional<CertificateSelectorError> authorize(const std::string& fingerprint) {
    const ClientIdentity identity = {fingerprint, {}, {}, {}};
    return selectorErrorOf(
        [&identity] { KeychainChromePrivateKeyAuthorizer().authorize(identity); });
  }

  Keychain keychain_;
};

TYPED_TEST_SUITE_P(AuthorizationConformance);

TYPED_TEST_P(AuthorizationConformance, AKeyThatAnyApplicationMayUseStaysAsItIs) {
  const Bytes der = this->keychain_.addIdentity(named("Ana"));
  const auto before = this->keychain_.contents();
  EXPECT_EQ(this->authorize(fingerprint(der)), std::nullopt);
  EXPECT_EQ(this->keychain_.contents(), before);
}

TYPED_TEST_P(AuthorizationConformance, OnlyTheIdentityThatWasAskedForMatters) {
  this->keychain_.addIdentity(named("Bea"));
  const Bytes der = this->keychain_.addIdentity(named("Ana"));
  this->keychain_.addIdentity(named("Zoe"));
  EXPECT_EQ(this->authorize(fingerprint(der)), std::nullopt);
}

TYPED_TEST_P(AuthorizationConformance, AKeyOfATokenIsUnsupportedAndStaysAsItIs) {
  const Bytes der = this->keychain_.addIdentityOfToken(named("card"));
  const auto before = this->keychain_.contents();
  EXPECT_EQ(this->authorize(fingerprint(der)),
            CertificateSelectorError::chromeKeyAuthorizationUnsupported());
  EXPECT_EQ(this->keychain_.contents(), before);
}

TYPED_TEST_P(AuthorizationConformance, AnEmptyKeychainDoesNotHoldTheIdentity) {
  EXPECT_EQ(this->authorize(std::string(64, '0')),
            CertificateSelectorError::selectedIdentityNotFound());
}

TYPED_TEST_P(AuthorizationConformance, AFingerprintIsMatchedExactly) {
  std::string id = fingerprint(this->keychain_.addIdentity(named("Ana")));
  EXPECT_EQ(this->authorize(id + " "), CertificateSelectorError::selectedIdentityNotFound());
  std::transform(id.begin(), id.end(), id.begin(),
                 [](unsigned char digit) { return static_cast<char>(std::toupper(digit)); });
  EXPECT_EQ(this->authorize(id), CertificateSelectorError::selectedIdentityNotFound());
}

TYPED_TEST_P(AuthorizationConformance, ACertificateWithoutAKeyIsNotFound) {
  this->keychain_.addCertificateWithoutKey(named("no key"));
  EXPECT_EQ(this->authorize(std::string(64, '0')),
            CertificateSelectorError::selectedIdentityNotFound());
}

TYPED_TEST_P(AuthorizationConformance, AKeychainThatCannotBeReadIsAFailureWithItsStatus) {
  const Bytes der = this->keychain_.addIdentity(named("Ana"));
  const KeychainStatus status = this->keychain_.damage();
  EXPECT_EQ(this->authorize(fingerprint(der)),
            CertificateSelectorError::keychainAuthorizationFailed(status));
}

REGISTER_TYPED_TEST_SUITE_P(AuthorizationConformance, AKeyThatAnyApplicationMayUseStaysAsItIs,
                            OnlyTheIdentityThatWasAskedForMatters,
                            AKeyOfATokenIsUnsupportedAndStaysAsItIs,
                            AnEmptyKeychainDoesNotHoldTheIdentity, AFingerprintIsMatchedExactly,
                            ACertificateWithoutAKeyIsNotFound,
                            AKeychainThatCannotBeReadIsAFailureWithItsStatus);

}  // namespace lumaret::tests::conformance
