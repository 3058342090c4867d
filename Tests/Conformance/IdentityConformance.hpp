// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "LumaretMacHelper/Fingerprint.hpp"
#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "Tests/Conformance/ConformanceCertificate.hpp"
#include "Tests/Support/Cpp/Principals.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests::conformance {

/// How the platform lists the identities that it stores.
///
/// A `Keychain` stands for the identities of the current user. At first there are none:
///     Bytes addIdentity(const Certificate&)
///         Adds a certificate with a key that any application may use. Returns the certificate's
///         DER bytes.
///     Bytes addIdentityOfToken(const Certificate&)
///         Adds the only certificate, with a key that may require a PIN. Returns its DER bytes.
///     void addCertificateWithoutKey(const Certificate&)
///     KeychainStatus damage()
///         From now on no identity can be read. Returns the status with which reading fails.
///     auto contents() const
///         Everything that is stored. The result can be compared with ==.
///     bool isForeign(const ClientIdentity&) const
///         Whether the identity was there before the test. Only for machines with identities that
///         a test cannot remove.
template <typename Keychain>
class IdentityConformance : public testing::Test {
 protected:
  std::vector<ClientIdentity> load() const {
    auto identities = KeychainIdentityLoader().loadIdentities();
    if constexpr (requires(const ClientIdentity& identity) { keychain_.isForeign(identity); }) {
      std::erase_if(identities, [this](const ClientIdentity& identity) {
        return keychain_.isForeign(identity);
      });
    }
    return identities;
  }

  std::vector<std::string> loadedNames() const { return displayNames(load()); }

  /// Adds the certificate, and returns the subject of the only identity. Its issuer must be the
  /// same.
  CertificatePrincipal subjectOf(const Certificate& certificate) {
    keychain_.addIdentity(certificate);
    const auto identities = load();
    EXPECT_EQ(identities.size(), 1U);
    EXPECT_EQ(identities.at(0).subject, identities.at(0).issuer);
    return identities.at(0).subject;
  }

  Keychain keychain_;
};

TYPED_TEST_SUITE_P(IdentityConformance);

TYPED_TEST_P(IdentityConformance, AnEmptyKeychainHasNoIdentities) {
  EXPECT_THAT(this->load(), testing::IsEmpty());
}

TYPED_TEST_P(IdentityConformance, AnIdentityIsListedWithItsFingerprintNamesAndExpiry) {
  using namespace std::chrono_literals;
  const Date expiresAt = std::chrono::sys_days(2087y / 3 / 1) + 12h + 34min + 56s;
  const Bytes der = this->keychain_.addIdentity(
      {{{"C", "ES"}, {"CN", "Ana Example"}, {"O", "Example Org"}, {"OU", "R/D"}, {"L", "Vigo"}},
       expiresAt});
  const CertificatePrincipal name = {"Ana Example", "Example Org", "R/D", "Vigo"};
  EXPECT_THAT(this->load(),
              testing::ElementsAre(ClientIdentity{fingerprint(der), name, name, expiresAt}));
}

TYPED_TEST_P(IdentityConformance, AttributesThatACertificateLacksAreAbsent) {
  EXPECT_EQ(this->subjectOf({{{"C", "ES"}, {"O", "Example Org"}}}),
            (CertificatePrincipal{std::nullopt, "Example Org", std::nullopt, std::nullopt}));
}

TYPED_TEST_P(IdentityConformance, TheFirstOfSeveralUnitsIsTheUnit) {
  EXPECT_EQ(this->subjectOf({{{"CN", "Ana"}, {"OU", "X"}, {"OU", "Y"}}}).organizationalUnit, "X");
}

TYPED_TEST_P(IdentityConformance, StringsBeyondASCIIAreComplete) {
  const std::string name = "\xc3\x81ngela \xe4\xb8\xad \xf0\x9f\x98\x80";
  EXPECT_EQ(this->subjectOf(named(name)).commonName, name);
}

TYPED_TEST_P(IdentityConformance, AnExpiredCertificateIsLeftOut) {
  this->keychain_.addIdentity(
      {{{"CN", "expired"}}, std::chrono::sys_days(std::chrono::year(2020) / 1 / 1)});
  this->keychain_.addIdentity(named("valid"));
  EXPECT_THAT(this->loadedNames(), testing::ElementsAre("valid"));
}

TYPED_TEST_P(IdentityConformance, ACertificateThatNeverExpiresIsListedWithItsExpiry) {
  using namespace std::chrono_literals;
  const Date never = std::chrono::sys_days(9999y / 12 / 31) + 23h + 59min + 59s;
  this->keychain_.addIdentity({{{"CN", "Ana"}}, never});
  const auto identities = this->load();
  ASSERT_EQ(identities.size(), 1U);
  EXPECT_EQ(identities[0].expiresAt, never);
}

TYPED_TEST_P(IdentityConformance, ACertificateWithoutAKeyIsNotAnIdentity) {
  this->keychain_.addCertificateWithoutKey(named("no key"));
  EXPECT_THAT(this->load(), testing::IsEmpty());
}

TYPED_TEST_P(IdentityConformance, AKeyOfATokenMakesAnIdentityToo) {
  this->keychain_.addIdentityOfToken(named("card"));
  EXPECT_THAT(this->loadedNames(), testing::ElementsAre("card"));
}

TYPED_TEST_P(IdentityConformance, NamesAreInOrderWhateverTheirCase) {
  for (const char* name : {"beta", "Gamma", "alpha", "Alpha 2"}) {
    this->keychain_.addIdentity(named(name));
  }
  EXPECT_THAT(this->loadedNames(), testing::ElementsAre("alpha", "Alpha 2", "beta", "Gamma"));
}

TYPED_TEST_P(IdentityConformance, ListingChangesNothing) {
  this->keychain_.addIdentity(named("Ana"));
  const auto before = this->keychain_.contents();
  EXPECT_EQ(this->load(), this->load());
  EXPECT_EQ(this->keychain_.contents(), before);
}

TYPED_TEST_P(IdentityConformance, AKeychainThatCannotBeReadIsAFailureWithItsStatus) {
  this->keychain_.addIdentity(named("Ana"));
  const KeychainStatus status = this->keychain_.damage();
  EXPECT_EQ(selectorErrorOf([this] { (void)this->load(); }),
            CertificateSelectorError::keychainFailure(status));
}

REGISTER_TYPED_TEST_SUITE_P(IdentityConformance, AnEmptyKeychainHasNoIdentities,
                            AnIdentityIsListedWithItsFingerprintNamesAndExpiry,
                            AttributesThatACertificateLacksAreAbsent,
                            TheFirstOfSeveralUnitsIsTheUnit, StringsBeyondASCIIAreComplete,
                            AnExpiredCertificateIsLeftOut,
                            ACertificateThatNeverExpiresIsListedWithItsExpiry,
                            ACertificateWithoutAKeyIsNotAnIdentity, AKeyOfATokenMakesAnIdentityToo,
                            NamesAreInOrderWhateverTheirCase, ListingChangesNothing,
                            AKeychainThatCannotBeReadIsAFailureWithItsStatus);

}  // namespace lumaret::tests::conformance
