// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <optional>
#include <unordered_set>
#include <vector>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"
#include "LumaretMacHelper/LumaretMacHelper.hpp"
#include "Tests/Support/Cpp/Messages.hpp"

namespace lumaret::tests {
namespace {

namespace m = messages;
using Error = CertificateSelectorError;

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
  Error error;
  std::string message;
};

/// Every kind, and more than one payload of those that have one.
const std::vector<ErrorCase>& errors() {
  constexpr KeychainStatus lowest = std::numeric_limits<KeychainStatus>::min();
  const std::string withZero("a\0b", 3);
  static const std::vector<ErrorCase> all = {
      {Error::keychainFailure(0), m::told(m::keychainFailure, 0)},
      {Error::keychainFailure(lowest), m::told(m::keychainFailure, lowest)},
      {Error::chromeLaunchFailed(""), m::told(m::chromeLaunchFailed, "")},
      {Error::chromeLaunchFailed(withZero), m::told(m::chromeLaunchFailed, withZero)},
      {Error::keychainAuthorizationFailed(-25300), m::told(m::keychainAuthorizationFailed, -25300)},
      {Error::keychainAuthorizationFailed(25300), m::told(m::keychainAuthorizationFailed, 25300)},
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
  return all;
}

TEST(SelectorError, HasItsMessage) {
  for (const auto& [error, message] : errors()) {
    EXPECT_EQ(error.errorDescription(), message);
    EXPECT_STREQ(error.what(), message.c_str());
  }
}

/// Expects these different errors to be values: each equals its copy alone, and hashes like it.
template <typename Type>
void expectValues(const std::vector<Type>& errors) {
  const std::vector<Type> copies = errors;
  const std::unordered_set<Type> set(errors.begin(), errors.end());
  for (std::size_t left = 0; left < errors.size(); ++left) {
    EXPECT_TRUE(set.contains(copies[left])) << copies[left].what();
    for (std::size_t right = 0; right < errors.size(); ++right) {
      EXPECT_EQ(errors[left] == copies[right], left == right) << copies[right].what();
    }
  }
}

TEST(Errors, AreValues) {
  std::vector<Error> selectorErrors;
  for (const ErrorCase& error : errors()) {
    selectorErrors.push_back(error.error);
  }
  expectValues(selectorErrors);
  expectValues<CommandError>({CommandError::usage()});
  expectValues<ChromePreferencesError>({ChromePreferencesError()});
  using Process = ChromeProcessError;
  expectValues<Process>({Process::unsuccessfulExit(-15), Process::unsuccessfulExit(15)});
  using Backend = KeychainAuthorizationBackendError;
  expectValues<Backend>({Backend::status(-128), Backend::status(128), Backend::unsupported()});
}

}  // namespace
}  // namespace lumaret::tests
