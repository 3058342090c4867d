// SPDX-License-Identifier: Apache-2.0
#include "Tests/Core/FakePlatform.hpp"

#include <cstdio>

#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"

namespace lumaret::tests {

FakePlatform& fakePlatform() {
  static FakePlatform platform;
  return platform;
}

}  // namespace lumaret::tests

namespace lumaret {

std::array<std::uint8_t, 32> sha256(std::span<const std::uint8_t> /*bytes*/) { return {}; }

TextComparison localizedCaseInsensitiveComparison() {
  return [](const std::string& left, const std::string& right) -> std::weak_ordering {
    return left <=> right;
  };
}

std::filesystem::path chromeExecutable() { return "/no/such/chrome"; }

void prepareStandardStreams() noexcept {}

void writeStandardOutput(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

void writeStandardError(std::string_view text) noexcept {
  std::fwrite(text.data(), 1, text.size(), stderr);
}

std::vector<std::unique_ptr<KeychainIdentity>> SystemKeychainIdentityQuery::copyIdentities() const {
  tests::fakePlatform().onListing();
  return {};
}

std::vector<std::string> CurrentUserChromePreferences::readRules() const { return {}; }

void CurrentUserChromePreferences::writeRules(const std::vector<std::string>& /*rules*/) {}

bool CurrentUserChromePreferences::synchronize() { return true; }

bool SystemChromeLaunchEnvironment::isExecutableFile(const std::filesystem::path& /*path*/) const {
  return false;
}

bool SystemChromeLaunchEnvironment::isApplicationRunning(const std::string& /*bundle*/) const {
  return false;
}

void SystemChromeLaunchEnvironment::run(const std::filesystem::path& /*executableURL*/,
                                        const std::vector<std::string>& /*arguments*/,
                                        bool /*waitUntilExit*/) const {}

KeychainIdentityLoader::KeychainIdentityLoader()
    : KeychainIdentityLoader(std::make_shared<SystemKeychainIdentityQuery>()) {}

KeychainChromePrivateKeyAuthorizer::KeychainChromePrivateKeyAuthorizer()
    : KeychainChromePrivateKeyAuthorizer(AuthorizeOperation([](const std::string&) {})) {}

ChromeCertificatePolicyService::ChromeCertificatePolicyService()
    : ChromeCertificatePolicyService(std::make_shared<CurrentUserChromePreferences>()) {}

ChromeLauncher::ChromeLauncher()
    : ChromeLauncher(defaultExecutableURL(), std::make_shared<SystemChromeLaunchEnvironment>()) {}

}  // namespace lumaret
