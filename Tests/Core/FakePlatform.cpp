// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdio>

#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"
#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "Tests/Core/FakeSystem.hpp"

namespace lumaret::tests {

FakeSystem& fakeSystem() {
  static FakeSystem system;
  return system;
}

}  // namespace lumaret::tests

namespace lumaret {

using namespace tests;

/// No digest: the beginning of the bytes.
std::array<std::uint8_t, 32> sha256(std::span<const std::uint8_t> bytes) {
  std::array<std::uint8_t, 32> beginning{};
  std::copy_n(bytes.begin(), std::min(bytes.size(), beginning.size()), beginning.begin());
  return beginning;
}

TextComparison localizedCaseInsensitiveComparison() {
  return [](const std::string& left, const std::string& right) -> std::weak_ordering {
    return left <=> right;
  };
}

std::filesystem::path chromeExecutable() { return "/opt/chrome"; }

void prepareStandardStreams() noexcept {
  fakeSystem().calls.emplace_back("prepareStandardStreams");
}

void writeStandardOutput(std::string_view text) {
  fakeSystem().called("output " + std::string(text));
}

void writeStandardError(std::string_view text) noexcept {
  fakeSystem().calls.push_back("error " + std::string(text));
  const std::string log = listed(fakeSystem().calls);
  std::fwrite(log.data(), 1, log.size(), stderr);
}

KeychainIdentityLoader::KeychainIdentityLoader()
    : KeychainIdentityLoader(std::make_shared<FakeServices>(fakeSystem())) {}

KeychainChromePrivateKeyAuthorizer::KeychainChromePrivateKeyAuthorizer()
    : KeychainChromePrivateKeyAuthorizer(AuthorizeOperation(
          [](const std::string& id) { fakeSystem().called("authorize " + id); })) {}

ChromeCertificatePolicyService::ChromeCertificatePolicyService()
    : ChromeCertificatePolicyService(std::make_shared<FakeServices>(fakeSystem())) {}

ChromeLauncher::ChromeLauncher()
    : ChromeLauncher(defaultExecutableURL(), std::make_shared<FakeServices>(fakeSystem())) {}

}  // namespace lumaret
