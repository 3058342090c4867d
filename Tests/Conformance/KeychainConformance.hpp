// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"
#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"
#include "Tests/Support/Cpp/FreshIdentity.hpp"

namespace lumaret::tests::conformance {

/// The name of the subject and issuer of a self-signed certificate: short names of attributes
/// ("CN", "O", "OU", "L", "C") and their values in UTF-8, in the order of the certificate.
using Name = std::vector<std::pair<std::string, std::string>>;

/// When every certificate expires: FreshIdentity::expiry.
inline constexpr Date expiresAt =
    std::chrono::sys_days(std::chrono::year(2087) / 3 / 1) + std::chrono::seconds(45296);

inline FreshIdentity makeIdentity(const TemporaryFolder& folder, const Name& name,
                                  KeyType keyType) {
  std::string subject;
  for (const auto& [shortName, value] : name) {
    subject += "/" + shortName + "=";
    for (const char character : value) {
      subject += character == '/' ? "\\/" : std::string(1, character);
    }
  }
  return tests::makeIdentity(folder, subject, keyType);
}

/// How the platform lists the identities that it stores, and authorizes Chrome for their keys.
///
/// A `Keychain` stands for the identities of the current user. At first there are none:
///     Bytes addIdentity(const Name&)
///         Adds a certificate with a key that any application may use. Returns the certificate's
///         DER bytes.
///     Bytes addIdentityOfToken(const Name&)
///         Adds the only certificate, with a key that may require a PIN. Returns its DER bytes.
///     void addCertificateWithoutKey(const Name&)
///     KeychainStatus damage()
///         From now on no identity can be read. Returns the status with which reading fails.
///     auto contents() const
///         Everything that is stored. The result can be compared with ==.
///     bool isForeign(const ClientIdentity&) const
///         Whether the identity was there before the test. Only for machines with identities that
///         a test cannot remove.
template <typename Keychain>
class KeychainConformance : public testing::Test {
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

  static std::optional<CertificateSelectorError> errorOfAuthorizing(const std::string& id) {
    const ClientIdentity identity = {id, {}, {}, {}};
    return selectorErrorOf([&] { KeychainChromePrivateKeyAuthorizer().authorize(identity); });
  }

  Keychain keychain_;
};

TYPED_TEST_SUITE_P(KeychainConformance);

TYPED_TEST_P(KeychainConformance, FindsNothingWithoutAnIdentity) {
  const std::string id(64, '0');
  for (int time = 0; time < 2; ++time) {
    EXPECT_THAT(this->load(), testing::IsEmpty());
    EXPECT_EQ(this->errorOfAuthorizing(id), CertificateSelectorError::selectedIdentityNotFound());
    this->keychain_.addCertificateWithoutKey({{"CN", "no key"}});
  }
}

TYPED_TEST_P(KeychainConformance, ListsFingerprintNamesAndExpiry) {
  const std::string organization = "\u00c1ngela \u4e2d \U0001f600";
  const Bytes der = this->keychain_.addIdentity(
      {{"C", "ES"}, {"CN", "Ana"}, {"O", organization}, {"OU", "R/D"}, {"OU", "X"}});
  const CertificatePrincipal name = {"Ana", organization, "R/D", std::nullopt};
  EXPECT_THAT(this->load(),
              testing::ElementsAre(ClientIdentity{fingerprint(der), name, name, expiresAt}));
}

TYPED_TEST_P(KeychainConformance, ListsAndAuthorizesAndChangesNothing) {
  Bytes last;
  for (const char* name : {"beta", "Gamma", "alpha"}) {
    last = this->keychain_.addIdentity({{"CN", name}});
  }
  const auto before = this->keychain_.contents();
  EXPECT_THAT(displayNames(this->load()), testing::ElementsAre("alpha", "beta", "Gamma"));
  EXPECT_EQ(this->errorOfAuthorizing(fingerprint(last)), std::nullopt);
  EXPECT_EQ(this->keychain_.contents(), before);
}

TYPED_TEST_P(KeychainConformance, ListsAndRejectsAKeyOfAToken) {
  const Bytes der = this->keychain_.addIdentityOfToken({{"CN", "card"}});
  const auto before = this->keychain_.contents();
  EXPECT_THAT(displayNames(this->load()), testing::ElementsAre("card"));
  EXPECT_EQ(this->errorOfAuthorizing(fingerprint(der)),
            CertificateSelectorError::chromeKeyAuthorizationUnsupported());
  EXPECT_EQ(this->keychain_.contents(), before);
}

TYPED_TEST_P(KeychainConformance, ReportsTheStatusOfAnUnreadableKeychain) {
  const Bytes der = this->keychain_.addIdentity({{"CN", "Ana"}});
  const KeychainStatus status = this->keychain_.damage();
  EXPECT_EQ(selectorErrorOf([this] { (void)this->load(); }),
            CertificateSelectorError::keychainFailure(status));
  EXPECT_EQ(this->errorOfAuthorizing(fingerprint(der)),
            CertificateSelectorError::keychainAuthorizationFailed(status));
}

// One block, and many.
TYPED_TEST_P(KeychainConformance, FingerprintsEveryByte) {
  EXPECT_EQ(fingerprint(Bytes(64, 'a')),
            "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb");
  EXPECT_EQ(fingerprint(Bytes(1'000'000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

REGISTER_TYPED_TEST_SUITE_P(KeychainConformance, FingerprintsEveryByte,
                            FindsNothingWithoutAnIdentity, ListsFingerprintNamesAndExpiry,
                            ListsAndAuthorizesAndChangesNothing, ListsAndRejectsAKeyOfAToken,
                            ReportsTheStatusOfAnUnreadableKeychain);

}  // namespace lumaret::tests::conformance
