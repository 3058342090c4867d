// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <optional>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"
#include "Tests/Support/Cpp/Messages.hpp"

namespace lumaret::tests {
namespace {

namespace m = messages;
using Error = CertificateSelectorError;
using K = Error::Kind;

TEST(ClientIdentity, IsDisplayedByCommonNameAlone) {
  for (const auto& [commonName, displayName] :
       {std::pair<std::optional<std::string>, std::string>("  Ana ", "  Ana "),
        {"", ""},
        {std::nullopt, "Unnamed certificate"}}) {
    const ClientIdentity identity = {"5d2a", {commonName, "Org", "Unit", "City"}, {}, Date()};
    EXPECT_EQ(identity.displayName(), displayName);
  }
}

struct ErrorCase {
  K kind;
  Error error;
  std::string message;
};

/// Every kind, and more than one payload of those that have one.
const std::vector<ErrorCase>& errors() {
  constexpr KeychainStatus lowest = std::numeric_limits<KeychainStatus>::min();
  const std::string withZero("a\0b", 3);
  static const std::vector<ErrorCase> all = {
      {K::keychainFailure, Error::keychainFailure(0), m::told(m::keychainFailure, 0)},
      {K::keychainFailure, Error::keychainFailure(lowest), m::told(m::keychainFailure, lowest)},
      {K::chromeLaunchFailed, Error::chromeLaunchFailed(""), m::told(m::chromeLaunchFailed, "")},
      {K::chromeLaunchFailed, Error::chromeLaunchFailed(withZero),
       m::told(m::chromeLaunchFailed, withZero)},
      {K::keychainAuthorizationFailed, Error::keychainAuthorizationFailed(-25300),
       m::told(m::keychainAuthorizationFailed, -25300)},
      {K::keychainAuthorizationFailed, Error::keychainAuthorizationFailed(25300),
       m::told(m::keychainAuthorizationFailed, 25300)},
      {K::certificateHasNoSubject, Error::certificateHasNoSubject(), m::certificateHasNoSubject},
      {K::policyEncodingFailed, Error::policyEncodingFailed(), m::policyEncodingFailed},
      {K::policyWriteFailed, Error::policyWriteFailed(), m::policyWriteFailed},
      {K::policyVerificationFailed, Error::policyVerificationFailed(), m::policyVerificationFailed},
      {K::chromeNotInstalled, Error::chromeNotInstalled(), m::chromeNotInstalled},
      {K::selectedIdentityNotFound, Error::selectedIdentityNotFound(), m::selectedIdentityNotFound},
      {K::selectedIdentityAmbiguous, Error::selectedIdentityAmbiguous(),
       m::selectedIdentityAmbiguous},
      {K::selectedIdentityHasNoPrivateKey, Error::selectedIdentityHasNoPrivateKey(),
       m::selectedIdentityHasNoPrivateKey},
      {K::chromeKeyAuthorizationUnsupported, Error::chromeKeyAuthorizationUnsupported(),
       m::chromeKeyAuthorizationUnsupported},
      {K::keychainAuthorizationCancelled, Error::keychainAuthorizationCancelled(),
       m::keychainAuthorizationCancelled},
  };
  return all;
}

TEST(SelectorError, HasKindAndMessage) {
  for (const auto& [kind, error, message] : errors()) {
    EXPECT_EQ(error.kind(), kind) << message;
    EXPECT_EQ(error.errorDescription(), message);
    EXPECT_STREQ(error.what(), message.c_str());
  }
}

TEST(SelectorError, EqualsOnlyWithKindAndPayload) {
  for (std::size_t left = 0; left < errors().size(); ++left) {
    for (std::size_t right = 0; right < errors().size(); ++right) {
      const Error copy = errors()[right].error;
      EXPECT_EQ(errors()[left].error == copy, left == right) << copy.what();
    }
  }
}

}  // namespace
}  // namespace lumaret::tests
