// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"
#include "LumaretMacHelper/LumaretMacHelper.hpp"
#include "Tests/Support/Cpp/Messages.hpp"
#include "Tests/Support/Cpp/Principals.hpp"

namespace lumaret::tests {
namespace {

namespace m = messages;
using Error = CertificateSelectorError;

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
  Error error;
  std::string message;
};

/// Every kind, and more than one payload of those that have one.
const std::vector<ErrorCase>& errors() {
  using Status = std::numeric_limits<KeychainStatus>;
  const std::string withZero("a\0b", 3);
  static const std::vector<ErrorCase> all = {
      {Error::keychainFailure(0), m::told(m::keychainFailure, "0")},
      {Error::keychainFailure(-25300), m::told(m::keychainFailure, "-25300")},
      {Error::keychainFailure(Status::max()), m::told(m::keychainFailure, "2147483647")},
      {Error::chromeLaunchFailed(""), "Google Chrome could not be opened: "},
      {Error::chromeLaunchFailed(" Nada\n"), m::told(m::chromeLaunchFailed, " Nada\n")},
      {Error::chromeLaunchFailed("a"), m::told(m::chromeLaunchFailed, "a")},
      {Error::chromeLaunchFailed(withZero), m::told(m::chromeLaunchFailed, withZero)},
      {Error::keychainAuthorizationFailed(-25300),
       m::told(m::keychainAuthorizationFailed, "-25300")},
      {Error::keychainAuthorizationFailed(Status::min()),
       m::told(m::keychainAuthorizationFailed, "-2147483648")},
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
