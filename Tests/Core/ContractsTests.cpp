// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"
#include "Tests/Support/Cpp/Messages.hpp"
#include "Tests/Support/Cpp/Principals.hpp"

namespace lumaret::tests {
namespace {

namespace m = messages;
using Error = CertificateSelectorError;
using K = Error::Kind;

const CertificatePrincipal allFields = {"Ana Example", "Example Org", "Sales", "Lisbon"};

std::string displayNameOf(std::optional<std::string> commonName) {
  return ClientIdentity{"5d2a", {std::move(commonName), "Org", "Unit", "City"}, allFields, Date()}
      .displayName();
}

TEST(ClientIdentity, IsDisplayedByCommonNameAlone) {
  EXPECT_EQ(displayNameOf("  Ana "), "  Ana ");
  EXPECT_EQ(displayNameOf(""), "");
  EXPECT_EQ(displayNameOf(std::nullopt), "Unnamed certificate");
}

TEST(ClientIdentity, EqualsOnlyWithEveryField) {
  const ClientIdentity identity = {"5d2a", noFields, noFields, Date()};
  EXPECT_EQ(identity, ClientIdentity(identity));
  const Date later(std::chrono::microseconds(1));
  for (const ClientIdentity& other : {ClientIdentity{"5D2A", noFields, noFields, Date()},
                                      ClientIdentity{"5d2a", {"", {}, {}, {}}, noFields, Date()},
                                      ClientIdentity{"5d2a", {{}, "", {}, {}}, noFields, Date()},
                                      ClientIdentity{"5d2a", {{}, {}, "", {}}, noFields, Date()},
                                      ClientIdentity{"5d2a", {{}, {}, {}, ""}, noFields, Date()},
                                      ClientIdentity{"5d2a", noFields, allFields, Date()},
                                      ClientIdentity{"5d2a", noFields, noFields, later}}) {
    EXPECT_FALSE(other == identity);
  }
}

struct ErrorCase {
  K kind;
  Error error;
  std::string message;
};

/// Every kind, and more than one payload of those that have one.
const std::vector<ErrorCase>& errors() {
  using Status = std::numeric_limits<KeychainStatus>;
  const std::string withZero("a\0b", 3);
  static const std::vector<ErrorCase> all = {
      {K::keychainFailure, Error::keychainFailure(0), m::told(m::keychainFailure, "0")},
      {K::keychainFailure, Error::keychainFailure(-25300), m::told(m::keychainFailure, "-25300")},
      {K::keychainFailure, Error::keychainFailure(Status::max()),
       m::told(m::keychainFailure, "2147483647")},
      {K::chromeLaunchFailed, Error::chromeLaunchFailed(""), "Google Chrome could not be opened: "},
      {K::chromeLaunchFailed, Error::chromeLaunchFailed(" Nada\n"),
       m::told(m::chromeLaunchFailed, " Nada\n")},
      {K::chromeLaunchFailed, Error::chromeLaunchFailed(withZero),
       m::told(m::chromeLaunchFailed, withZero)},
      {K::keychainAuthorizationFailed, Error::keychainAuthorizationFailed(-25300),
       m::told(m::keychainAuthorizationFailed, "-25300")},
      {K::keychainAuthorizationFailed, Error::keychainAuthorizationFailed(Status::min()),
       m::told(m::keychainAuthorizationFailed, "-2147483648")},
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
