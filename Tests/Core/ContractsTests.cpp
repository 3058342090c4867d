// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <unordered_set>
#include <utility>

#include "LumaretMacHelper/Contracts.hpp"
#include "Tests/Support/Cpp/Messages.hpp"

namespace lumaret::tests {
namespace {

namespace m = messages;
using Error = CertificateSelectorError;

TEST(ClientIdentity, IsDisplayedByCommonNameAlone) {
  ClientIdentity identity = {"5d2a", {"  Ana ", "Org", "Unit", "City"}, {}, Date()};
  EXPECT_EQ(identity.displayName(), "  Ana ");
  identity.subject.commonName.reset();
  EXPECT_EQ(identity.displayName(), "Unnamed certificate");
}

// Every kind, and more than one payload of those that have one.
TEST(SelectorError, IsAValueWithItsMessage) {
  const std::string withZero("a\0b", 3);
  const std::pair<Error, std::string> errors[] = {
      {Error::keychainFailure(0), m::told(m::keychainFailure, "0")},
      {Error::keychainFailure(INT32_MIN), m::told(m::keychainFailure, "-2147483648")},
      {Error::chromeLaunchFailed(""), m::told(m::chromeLaunchFailed, "")},
      {Error::chromeLaunchFailed(withZero), m::told(m::chromeLaunchFailed, withZero)},
      {Error::keychainAuthorizationFailed(-25300),
       m::told(m::keychainAuthorizationFailed, "-25300")},
      {Error::certificateHasNoSubject(), m::certificateHasNoSubject},
      {Error::policyEncodingFailed(), m::policyEncodingFailed},
      {Error::policyWriteFailed(), m::policyWriteFailed},
      {Error::policyVerificationFailed(), m::policyVerificationFailed},
      {Error::chromeNotInstalled(), m::chromeNotInstalled},
      {Error::selectedIdentityNotFound(), m::selectedIdentityNotFound},
      {Error::selectedIdentityAmbiguous(), m::selectedIdentityAmbiguous},
      {Error::selectedIdentityHasNoPrivateKey(), m::selectedIdentityHasNoPrivateKey},
      {Error::chromeKeyAuthorizationUnsupported(), m::chromeKeyAuthorizationUnsupported},
      {Error::keychainAuthorizationCancelled(), m::keychainAuthorizationCancelled},
  };
  std::unordered_set<Error> different;
  for (const auto& [error, message] : errors) {
    EXPECT_EQ(error.errorDescription(), message);
    EXPECT_STREQ(error.what(), message.c_str());
    EXPECT_TRUE(different.insert(error).second) << message;
    EXPECT_FALSE(different.insert(Error(error)).second) << message;
  }
}

}  // namespace
}  // namespace lumaret::tests
